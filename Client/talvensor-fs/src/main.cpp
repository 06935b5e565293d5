#include "OpcUa/Memory.h"
#include "Program.h"

int main(int argumentCount, char** arguments)
{
    OpcUa::KeepFreedMemory();
    return Cli::RunProgram({arguments + 1, arguments + argumentCount});
}
