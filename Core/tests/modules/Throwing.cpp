#include "FailingModule.h"

#include <exception>

namespace {

const FailingModule::Presence presence;

/// An exception whose code is unloaded with the module.
class Sulk final : public std::exception
{
public:
    [[nodiscard]] const char* what() const noexcept override { return "not today"; }
};

} // namespace

int RegisterFactories(Core::CoreContext& context)
{
    FailingModule::RegisterOne(context, "00000000000000000000000000000002");
    throw Sulk();
}
