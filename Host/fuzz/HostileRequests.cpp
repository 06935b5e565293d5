#include "Hostile.h"

namespace Fuzz {

void HostileRequests::Step()
{
    if (!client) {
        client = std::make_unique<LibraryClient>(field.url, true, field.user);
        ++field.figures.encryptedSessions;
    }
    const bool isLeaving = field.random.Chance(1) && field.random.Chance(20);
    Value request = field.requests.Make(field.pool.DrawNumber(field.random));
    const std::size_t times = field.random.Below(4);
    for (std::size_t i = 0; i < times; ++i)
        field.mutator.Mutate(request.Get(), request.GetType());
    const bool isSent = client->Post(request, [this](UA_StatusCode status) {
        ++field.figures.answers[UA_StatusCode_name(status)];
    });
    if (isSent) {
        ++field.figures.frames;
        ++field.figures.requests[request.GetType().typeName];
    }
    if (!client->TakeAnswers() || isLeaving)
        client.reset();
}

} // namespace Fuzz
