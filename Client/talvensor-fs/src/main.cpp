#include "Program.h"
#include "Support/Memory.h"

int main(int argumentCount, char** arguments)
{
    Support::KeepFreedMemory();
    return Cli::RunProgram({arguments + 1, arguments + argumentCount});
}
