// libFuzzer target: any bytes given to the DXF reader either read into a
// drawing that writes out and reads back, or fail with a message.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kora/dxf/dxf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    KoDbDatabase db(false);
    KoString message;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const Kora::ErrorStatus es = kodbReadDxf(db, bytes, L"fuzz.dxf", &message);
    if (es != Kora::eOk) {
        if (message.isEmpty()) std::abort();  // every failure must say why
        return 0;
    }
    std::string out;
    if (kodbWriteDxf(db, out) != Kora::eOk) std::abort();
    KoDbDatabase again(false);
    if (kodbReadDxf(again, out, L"rewritten.dxf", &message) != Kora::eOk) std::abort();  // we must read what we write
    if (db.openObjectCount() != 0 || again.openObjectCount() != 0) std::abort();
    return 0;
}
