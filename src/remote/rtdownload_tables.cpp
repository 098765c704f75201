// Rows of drawing tables. What holds: only rows that were asked for go in, a table's note of the
// path that it serves stays, and its tag never falls.
//
// The families below come up to here by zTableCheckKeys alone (zev/table.h).
#include "objects/drawing/drawing.hpp"
#include "remote/rtdownload.hpp"
#include "zev/table.h"
#include "zev/vector.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace zev {

namespace {

constexpr uint64_t kKeysAtOnce = 50'000;
constexpr PairLimits kLimits{limits::row_key, limits::row_value};

// What a server sends, whole or not, ends by the mark: a key's length of 0.
bool has_end_mark(Stream *body) {
    uint8_t mark[4];
    return zStreamSeek(body, -4, SEEK_END) && zStreamRead(body, mark, sizeof mark) == sizeof mark &&
           !load_u32(mark) && zStreamRewind(body);
}

class Rows {
  public:
    Rows(Table *table, std::span<const DrawingKey> asked) : table_(table), batch_(table) {
        for (const DrawingKey &key : asked) asked_.push_back(key_bytes(key));
        std::ranges::sort(asked_);
    }

    void take(Bytes key, Bytes value) {
        KeyBytes bytes;
        if (key.size() != bytes.size()) return;
        std::ranges::copy(key, bytes.begin());
        if (!std::ranges::binary_search(asked_, bytes)) return;
        if (bytes == key_bytes(kTagKey)) return take_tag(value);
        if (bytes != key_bytes(kReferenceKey) || !is_noted()) batch_.put(key, value);
    }

    bool finish() {
        uint64_t own = 0;
        if (!batch_.flush()) return false;
        if (!tag_) return true;
        return read_tag(table_, own) && (own >= *tag_ || zTableTagSet(table_, *tag_));
    }

  private:
    void take_tag(Bytes value) {
        if (value.size() != sizeof(uint64_t)) return;
        if (const uint64_t tag = load_u64(value.data()); tag <= kHighestTag) tag_ = tag;
    }
    // What the table serves here may lie elsewhere at others.
    bool is_noted() const {
        TableLookup lookup(table_);
        return lookup.find(key_bytes(kReferenceKey)) || lookup.is_broken();
    }

    Table *table_;
    TableBatch batch_;
    std::vector<KeyBytes> asked_; // in order
    std::optional<uint64_t> tag_;
};

bool store_rows(const RemoteCall &call, Table *table, Stream *body,
                std::span<const DrawingKey> asked) {
    if (!has_end_mark(body)) return wrong_data(call);
    Rows rows(table, asked);
    const bool fits = read_pairs(
        body, [&](Bytes key, Bytes value) { rows.take(key, value); }, kLimits);
    return rows.finish() && (fits || wrong_data(call));
}

} // namespace

} // namespace zev

using namespace zev;

bool zRemoteDownloadTable(Remote *remote, Table *table, const Vector *keys,
                          const Notify *notify) try {
    if (!remote || !table || !zVectorIsValid(keys)) return fail_args();
    if (!zRemoteConnect(remote, notify)) return false;
    const RemoteCall call{remote, nullptr, u"net.eFailedToFetchObject"};
    const std::u16string tail = u"/tables/" + id_text(table->id);
    for (uint64_t cursor = 0; cursor < zVectorSize(keys);) {
        const uint64_t first = cursor;
        StreamPtr list(zDrawingKeyVectorWriteTrunk(keys, kKeysAtOnce, &cursor));
        HttpRequest *request = list ? make_request(call, Z_HTTP_PATCH, tail) : nullptr;
        if (!request || !zHttpRequestSetNotify(request, notify) ||
            !zHttpRequestSetOctet(request, list.release()))
            return false;
        Stream *body = body_of(call, send(call, request));
        if (!body || !store_rows(call, table, body, keys_of(keys).subspan(first, cursor - first)))
            return false;
    }
    return true;
} catch (...) {
    return fail_thrown();
}

bool zTableCheckKeys(Table *table, Vector *keys) {
    if (!table || !keys || !table->owner) return fail_args();
    const RemotePtr remote(zRemoteOpen(table->owner));
    return remote && zVectorPush(keys, &kTagKey) &&
           zRemoteDownloadTable(remote.get(), table, keys, nullptr);
}
