// A server's list of references: no entry of it makes a name that is HEAD, a branch of the copy, or
// outside of refs/.
#include "answer_entries.hpp"
#include "remote/rtdownload.hpp"

#include <cstdlib>
#include <string_view>

using namespace zev;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    each_entry(data, size, [](const Json *entry) {
        ListedRef ref;
        if (!read_ref(entry, ref) || !may_write_ref(ref.name)) return;
        const std::u16string_view name = ref.name;
        if (!ref.target || zStrncasesameW(ref.name, u"refs/heads/", 11)) abort();
        if (!zStrncasesameW(ref.name, u"refs/", 5) || name == u"HEAD") abort();
    });
    return 0;
}
