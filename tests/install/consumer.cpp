#include <velm/DatabaseCommandExecutor.h>
#include <velm/DatabaseResult.h>

#include <cstdio>

int main() {
    velm::DatabaseCommandExecutor executor;
    velm::DatabaseResult result = executor.execute("SELECT 1");
    std::printf("%s\n", result.connectionError() ? executor.getErrorMessage().c_str() : "unexpected");
    return result.connectionError() ? 0 : 1;
}
