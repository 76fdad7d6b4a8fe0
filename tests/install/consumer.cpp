// A program built against the installed library: links, runs, and reports an unconnected executor's error.
#include <velm/DatabaseCommandExecutor.h>
#include <velm/DatabaseResult.h>
#include <velm/PrefixMapMonitor.h>

#include <cstdio>

int main() {
    velm::DatabaseCommandExecutor executor;
    velm::DatabaseResult result = executor.execute("SELECT 1");
    std::printf("%s\n", result.connectionError() ? executor.getErrorMessage().c_str() : "unexpected");
    // The monitor's header and symbols are installed too; none runs here.
    return result.connectionError() && !velm::PrefixMapMonitor::exists() ? 0 : 1;
}
