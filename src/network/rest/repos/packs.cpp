// Packs: one is taken in whole or not at all, one is put together from a list of objects. What
// holds: a pack counts only after all its objects were looked at.
#include "common/reader.hpp"
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "network/rest/repos/pack_stream.hpp"
#include "network/rest/repos/paths_of.hpp"
#include "objects/store/pack.hpp"
#include "objects/store/repository.hpp"
#include "objects/store/tree_extent.hpp"
#include "stream/stream.hpp"
#include "zev/pack.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zev::rest {

namespace {

using WriterPtr = Owned<PackWriter, zPackWriterFree>;
using BuilderPtr = Owned<PackBuilder, zPackBuilderFree>;
using StreamPtr = Owned<Stream, zStreamFree>;

// ---- Taking in

// A pack's bytes on their way to the writer. After a failure the rest is passed over.
class Intake {
  public:
    Intake(PackWriter *writer, const HttpLimits &limits) : writer_(writer), limits_(limits) {}

    // False when there are too many objects.
    bool take(const void *bytes, uint64_t size) {
        look(bytes, size);
        if (is_too_large()) return false;
        whole_ = whole_ && zPackWriterAppend(writer_, bytes, size);
        return true;
    }
    // The head tells how many: "PACK", version u32, count u32.
    bool is_too_large() const {
        return seen_ == head_.size() && !memcmp(head_.data(), "PACK", 4) &&
               load_u32(head_.data() + 8) > limits_.pack;
    }
    bool commit() { return whole_ && commit_formed(writer_, limits_.object); }

  private:
    void look(const void *bytes, uint64_t size) {
        const uint64_t count = std::min<uint64_t>(size, head_.size() - seen_);
        memcpy(head_.data() + seen_, bytes, count);
        seen_ += count;
    }

    PackWriter *writer_;
    const HttpLimits &limits_; // of the server
    bool whole_ = true;
    std::array<uint8_t, 12> head_{};
    uint64_t seen_ = 0;
};

// ---- Putting together

// False when the entry has no id, or the store no such object, or one too large to go through.
bool insert_entry(Repository *repository, PackBuilder *builder, const Json *entry) {
    const PackEntry wanted = pack_entry(entry);
    if (!wanted.is_sound) return false;
    if (!wanted.recursive) return zPackBuilderInsert(builder, &wanted.id);
    return has_bounded_extent(repository->handle.get(), git::oid(&wanted.id)) &&
           zPackBuilderInsertRecur(builder, &wanted.id);
}

HttpResponse *insert_entries(const Call &call, PackBuilder *builder, Json *entries) {
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n)
        if (!insert_entry(call.repository.get(), builder, zJsonArrayAt(entries, n)))
            return refuse(call, 400, u"srv.eInvalidContent");
    return nullptr;
}

int32_t send_piece(const void *bytes, uint64_t size, void *stream) {
    return write_piece(static_cast<Stream *>(stream), bytes, size) ? 0 : -1;
}

} // namespace

HttpResponse *upload_pack(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const WriterPtr writer(zPackWriterNew(call.repository.get()));
    if (!writer) return refuse(call, 500, u"odb.eFailedToWritePack");
    if (HttpResponse *refusal = need_octets(call)) return refusal;
    Intake intake(writer.get(), call.server->limits);
    const bool read =
        read_pieces(zHttpRequestBody(call.request),
                    [&](const void *bytes, uint64_t size) { return intake.take(bytes, size); });
    if (!read) return refuse(call, 400, u"srv.eInvalidContent");
    if (intake.is_too_large()) return refuse(call, 413);
    if (!intake.commit() || !sync_project(call))
        return refuse(call, 500, u"odb.eFailedToWritePack");
    return answer_data(201, project_record(call, u"pack", {u"packs"}));
}

HttpResponse *build_pack(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    Tree body;
    Json *entries = nullptr;
    if (HttpResponse *refusal = read_entries(call, body, entries)) return refusal;
    if (call.guarded && !may_read_entries(call, entries)) return refuse(call, 403);
    const BuilderPtr builder(zPackBuilderNew(call.repository.get()));
    if (!builder) return refuse(call, 500, u"srv.eAccessProject");
    if (HttpResponse *refusal = insert_entries(call, builder.get(), entries)) return refusal;
    StreamPtr stream(spill_stream());
    if (!stream) return refuse(call, 500, u"srv.eInternalError");
    if (!zPackBuilderForeach(builder.get(), send_piece, stream.get()))
        return refuse(call, 500, u"srv.eAccessProject");
    return zHttpResponseOctet(200, stream.release());
}

} // namespace zev::rest
