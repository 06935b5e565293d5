#include "FileObjectsBehaviour.h"
#include "MethodValues.h"

#include <utility>

namespace FileObjects {

namespace {

using Texts = std::vector<std::string>;
using Values = std::vector<Core::Value>;

void AddStates(States states, Values& outputs)
{
    outputs.push_back(ToArray(std::move(states.kinds)));
    outputs.push_back(ToArray(std::move(states.sizes)));
    outputs.push_back(ToArray(std::move(states.times)));
    outputs.push_back(ToArray(std::move(states.permissions)));
    outputs.push_back(ToArray(std::move(states.access)));
    outputs.push_back(ToArray(std::move(states.statuses)));
    outputs.push_back(ToArray(std::move(states.reasons)));
}

void AddResults(Results results, Values& outputs)
{
    outputs.push_back(ToArray(std::move(results.statuses)));
    outputs.push_back(ToArray(std::move(results.reasons)));
}

/// Adds the outputs of ListPath: the permissions stand before `next`.
void AddEntriesWithPermissions(Listing listing, Values& outputs)
{
    auto permissions = ToArray(std::move(listing.permissions));
    AddEntries(std::move(listing), outputs);
    outputs.insert(outputs.end() - 1, std::move(permissions));
}

} // namespace

/// Those of the file system that take paths.
const FileObjectsBehaviour::Methods& FileObjectsBehaviour::GetPathMethods()
{
    static const Methods methods = {
        {"GetStates", 1,
         [](auto& self, const Call& call) {
             AddStates(self.paths.GetStates(GetElements<std::string>(call.inputs[0]), call.caller),
                       call.outputs);
         }},
        {"ListPath", 3,
         [](auto& self, const Call& call) {
             AddEntriesWithPermissions(
                 self.paths.List(GetText(call.inputs[0]), call.inputs[1].Get<unsigned long>(),
                                 call.inputs[2].Get<unsigned int>(), call.caller),
                 call.outputs);
         }},
        {"MovePaths", 3,
         [](auto& self, const Call& call) {
             AddResults(self.paths.Move(GetElements<std::string>(call.inputs[0]),
                                        GetElements<std::string>(call.inputs[1]),
                                        call.inputs[2].Get<bool>(), call.caller),
                        call.outputs);
         }},
        {"CopyPath", 3,
         [](auto& self, const Call& call) {
             self.paths.Copy(GetText(call.inputs[0]), GetText(call.inputs[1]),
                             call.inputs[2].Get<bool>(), call.caller);
         }},
        {"GetPathSpace", 1,
         [](auto& self, const Call& call) {
             const auto space = self.paths.GetSpace(GetText(call.inputs[0]));
             call.outputs.push_back(ToUInt64(space.total));
             call.outputs.push_back(ToUInt64(space.free));
         }},
        {"GetPathChecksum", 3,
         [](auto& self, const Call& call) {
             auto checksum = self.paths.GetChecksum(
                 GetText(call.inputs[0]), call.inputs[1].Get<unsigned long>(),
                 call.inputs[2].Get<unsigned long>(), call.caller);
             call.outputs.emplace_back(std::move(checksum.bytes), true);
             call.outputs.push_back(ToUInt64(checksum.length));
         }},
        {"SetPathPermissions", 2,
         [](auto& self, const Call& call) {
             AddResults(self.paths.SetPermissions(GetElements<std::string>(call.inputs[0]),
                                                  GetElements<unsigned int>(call.inputs[1]),
                                                  call.caller),
                        call.outputs);
         }},
    };
    return methods;
}

} // namespace FileObjects
