#include "Users/RandomNumbers.h"

#include "OpcUa/LibraryAssumptions.h"

#include <open62541/plugin/log_stdout.h>
#include <open62541/plugin/securitypolicy_default.h>
#include <open62541/util.h>

#include <openssl/rand.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>

namespace {

std::atomic<unsigned long> drawn{0};

/// Ends the process if the system gives no random bytes: sessions could not be protected.
void Fill(void* bytes, std::size_t size)
{
    ++drawn;
    if (RAND_bytes(static_cast<unsigned char*>(bytes), static_cast<int>(size)) == 1)
        return;
    std::fputs("talvensor-host: OpenSSL has no random numbers\n", stderr);
    std::abort();
}

} // namespace

// Stand in for the library's functions. Any thread.
extern "C" {

[[gnu::visibility("default")]] UA_Guid UA_Guid_random(void)
{
    UA_Guid guid;
    Fill(&guid, sizeof(guid));
    return guid;
}

[[gnu::visibility("default")]] UA_UInt32 UA_UInt32_random(void)
{
    UA_UInt32 number = 0;
    Fill(&number, sizeof(number));
    return number;
}

} // extern "C"

namespace Host {

namespace {

/// Has the library make a nonce. Returns false if it cannot.
bool DrawNonce()
{
    UA_SecurityPolicy policy{};
    if (UA_SecurityPolicy_None(&policy, UA_BYTESTRING_NULL, UA_Log_Stdout) != UA_STATUSCODE_GOOD)
        return false;
    std::array<UA_Byte, 32> bytes{};
    UA_ByteString nonce{bytes.size(), bytes.data()};
    const auto status = policy.symmetricModule.generateNonce(policy.policyContext, &nonce);
    policy.clear(&policy);
    return status == UA_STATUSCODE_GOOD;
}

/// Returns true if the dynamic linker binds the name to this function.
template <typename Function>
bool IsBound(const char* name, Function* function)
{
    return dlsym(RTLD_DEFAULT, name) == reinterpret_cast<void*>(function);
}

bool DrawAsSessionsDo()
{
    return IsBound("UA_Guid_random", &UA_Guid_random) &&
           IsBound("UA_UInt32_random", &UA_UInt32_random) && DrawNonce();
}

} // namespace

void RequireDrawnHere(bool (*draw)())
{
    const auto before = drawn.load();
    if (!draw() || drawn == before)
        throw OpcUa::LibraryException("random numbers",
                                      "it does not use this program's, and its own can be "
                                      "computed; sessions could be taken over");
}

void RequireUnpredictableSessions()
{
    RequireDrawnHere(&DrawAsSessionsDo);
}

} // namespace Host
