// A resource library without strings: the module must fall back to its
// built-in command names.
#include "kora/resources.h"

extern "C" __attribute__((visibility("default"))) const KoResourceString* koraResourceStrings(size_t* count)
{
    *count = 0;
    return nullptr;
}
