#include "Application.h"
#include "Serve.h"

int main(int argumentCount, char** arguments)
{
    return static_cast<int>(Host::RunApplication(argumentCount, arguments, Host::Serve));
}
