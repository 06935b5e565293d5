#include "Report.h"

namespace Bench {

int RunProgram(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
}

} // namespace Bench
