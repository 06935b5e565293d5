#include "Program.h"

int main(int argumentCount, char** arguments)
{
    return Cli::RunProgram({arguments + 1, arguments + argumentCount});
}
