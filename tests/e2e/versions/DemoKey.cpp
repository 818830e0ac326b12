// Pin of a publisher's build, for the demonstration's publisher.

#include "update/PinnedUpdateKey.h"

namespace corvane {

// Public key of the first vector in RFC 8032, whose private half is public too.
const char *pinnedUpdateKey()
{
    return "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";
}

} // namespace corvane
