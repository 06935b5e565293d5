#include "Endpoint/CallBook.h"

namespace Host {

CallBook::Number CallBook::Enter(const void* context)
{
    newest.insert_or_assign(context, ++last);
    return last;
}

bool CallBook::Remove(const void* context, Number number)
{
    const auto found = newest.find(context);
    if (found == newest.end() || found->second != number)
        return false;
    newest.erase(found);
    return true;
}

} // namespace Host
