#include "Application.h"
#include "Process/Process.h"
#include "Serve.h"

int main(int argumentCount, char** arguments)
{
    if (!Host::SettleDescriptors())
        return static_cast<int>(Host::ExitStatus::Failed);
    return static_cast<int>(
        Host::RunApplication(argumentCount, arguments, Host::Serve, Host::TryServing));
}
