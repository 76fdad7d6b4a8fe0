// A program built against the installed library: unconnected it reports an error, then it reads a row through the
// database location and user it is given (consumer LOCATION USER).
#include <velm/DatabaseCommandExecutor.h>
#include <velm/DatabaseResult.h>
#include <velm/PrefixMapMonitor.h>
#include <velm/QueryResultPtr.h>

#include <cstdio>

int main(int argc, char** argv) {
    velm::DatabaseCommandExecutor executor;
    // The monitor's header and symbols are installed too; none runs here.
    if (argc != 3 || !executor.execute("SELECT 1").connectionError() || velm::PrefixMapMonitor::exists())
        return 2;
    velm::QueryResultPtr rows;
    if (!executor.connect(argv[1], argv[2], "") || !executor.execute("SELECT 'reached'", rows).okay() ||
        rows.rows() != 1) {
        std::fprintf(stderr, "%s\n", executor.getErrorMessage().c_str());
        return 1;
    }
    std::printf("%s\n", rows.getValue(0, 0));
    return 0;
}
