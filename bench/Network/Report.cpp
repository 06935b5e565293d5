#include "Report.h"

#include <exception>
#include <iostream>

namespace Bench {

int RunProgram(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::cerr << app.get_name() << ": " << error.what() << "\n";
        return 1;
    }
}

} // namespace Bench
