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
class PackIntake : public Intake {
  public:
    PackIntake(WriterPtr writer, const HttpLimits &limits)
        : writer_(std::move(writer)), limits_(limits) {}

    bool add(std::string_view bytes) override {
        return writer_ && pieces_.add(bytes, [&](std::string_view part) { return take(part); });
    }
    bool has_writer() const { return writer_ != nullptr; }
    // It ends with a piece; one that was given up had no other end to come.
    bool is_whole() const { return is_too_large() || pieces_.is_whole(); }
    // The head tells how many: "PACK", version u32, count u32.
    bool is_too_large() const {
        return seen_ == head_.size() && !memcmp(head_.data(), "PACK", 4) &&
               load_u32(head_.data() + 8) > limits_.pack;
    }
    bool commit() { return sound_ && commit_formed(writer_.get(), limits_.object); }

  private:
    // False when there are too many objects.
    bool take(std::string_view part) {
        const uint64_t count = std::min<uint64_t>(part.size(), head_.size() - seen_);
        memcpy(head_.data() + seen_, part.data(), count);
        seen_ += count;
        if (is_too_large()) return false;
        sound_ = sound_ && zPackWriterAppend(writer_.get(), part.data(), part.size());
        return true;
    }

    const WriterPtr writer_;
    const HttpLimits &limits_; // of the server
    PieceReader pieces_;
    bool sound_ = true;
    std::array<uint8_t, 12> head_{};
    uint64_t seen_ = 0;
};

// All of the request's body. False when it can't be read.
bool add_body(const Call &call, PackIntake &intake) {
    Stream *body = zHttpRequestBody(call.request);
    char block[1u << 14];
    for (uint64_t count; (count = zStreamRead(body, block, sizeof block));)
        if (!intake.add({block, count})) return true;
    return !zStreamError(body);
}

// ---- Putting together

// False when the entry has no id, or the store no such object, or one too large to go through.
bool insert_entry(Repository *repository, PackBuilder *builder, const Json *entry) {
    const PackEntry wanted = pack_entry(entry);
    if (!wanted.is_sound) return raise_args();
    if (!wanted.recursive) return zPackBuilderInsert(builder, &wanted.id);
    if (!has_bounded_extent(repository->handle.get(), git::oid(&wanted.id))) return raise_range();
    return zPackBuilderInsertRecur(builder, &wanted.id);
}

HttpResponse *insert_entries(const Call &call, PackBuilder *builder, Json *entries) {
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n)
        if (!insert_entry(call.repository.get(), builder, zJsonArrayAt(entries, n)))
            return refuse_absent(call, {400, u"srv.eInvalidContent", nullptr});
    return nullptr;
}

int32_t send_piece(const void *bytes, uint64_t size, void *stream) {
    return write_piece(static_cast<Stream *>(stream), bytes, size) ? 0 : -1;
}

} // namespace

// Where the project can't be opened, or the writer not be made, nothing is taken: the procedure
// says why.
std::unique_ptr<Intake> take_pack(Call &call) {
    const Owned<HttpResponse, zHttpResponseFree> refusal(open_project(call));
    WriterPtr writer(refusal ? nullptr : zPackWriterNew(call.repository.get()));
    return std::make_unique<PackIntake>(std::move(writer), call.server->limits);
}

HttpResponse *upload_pack(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const bool came = call.intake != nullptr;
    if (!came) call.intake = take_pack(call);
    auto &intake = static_cast<PackIntake &>(*call.intake);
    if (!intake.has_writer()) return refuse(call, 500, u"odb.eFailedToWritePack");
    if (HttpResponse *refusal = came ? nullptr : need_octets(call)) return refusal;
    const bool read = came || add_body(call, intake);
    if (!read || !intake.is_whole()) return refuse(call, 400, u"srv.eInvalidContent");
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
    if (HttpResponse *refusal = admit_entries(call, entries)) return refusal;
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
