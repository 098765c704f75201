// The store's files: any bytes are refused, or are records whose text is read again as the same.
#include "records.hpp"
#include "zev/error.h"

#include <cstdlib>

namespace {

template <class T> void judge(std::string_view bytes) {
    T records, again;
    if (!zevauth::parse(bytes, &records)) return;
    const std::string text = zevauth::text_of(records);
    if (!zevauth::parse(text, &again) || zevauth::text_of(again) != text) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    judge<zevauth::Team>(bytes);
    judge<zevauth::Rights>(bytes);
    judge<zevauth::Secrets>(bytes);
    return 0;
}
