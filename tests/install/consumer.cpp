// A program built against the installed library: before connecting it reports an error, then reads a row through
// the database location and user it is given.
#include <velm/DatabaseCommandExecutor.h>
#include <velm/DatabaseResult.h>
#include <velm/PrefixMapMonitor.h>
#include <velm/QueryResultPtr.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: consumer LOCATION USER\n");
        return 2;
    }
    velm::DatabaseCommandExecutor executor;
    if (!executor.execute("SELECT 1").connectionError())
        return 1;
    // The monitor's header and symbols are installed too; none runs here.
    if (velm::PrefixMapMonitor::exists() || !executor.connect(argv[1], argv[2], "")) {
        std::fprintf(stderr, "%s\n", executor.getErrorMessage().c_str());
        return 1;
    }
    velm::QueryResultPtr rows;
    velm::DatabaseResult result = executor.execute("SELECT 'reached'", rows);
    if (!result.okay() || rows.rows() != 1)
        return 1;
    std::printf("%s\n", rows.getValue(0, 0));
    return 0;
}
