// objects/<2 hex>/<38 hex>: one zlib stream of "blob", a blank, the size in decimal digits, a zero
// byte, and the bytes.
#include "objects/loose_blob.hpp"

#include "common/utf.hpp"

#include <charconv>
#include <string>
#include <string_view>

namespace zev {

namespace {

constexpr size_t kBlock = 1u << 16, kLongestHead = 32;

std::u16string path_of(git_repository *repository, const git_oid &id) {
    const std::string hex = git_oid_tostr_s(&id);
    return to_wide(git_repository_commondir(repository) + ("objects/" + hex.substr(0, 2)) + "/" +
                   hex.substr(2));
}

} // namespace

LooseBlob::~LooseBlob() {
    if (ready_) inflateEnd(&state_);
}

bool LooseBlob::open(git_repository *repository, const git_oid &id) {
    file_.reset(os::open(path_of(repository, id).c_str(), u"rb"));
    if (!file_) return false;
    setvbuf(file_.get(), nullptr, _IONBF, 0);
    block_.resize(kBlock);
    ready_ = inflateInit(&state_) == Z_OK;
    return ready_ && read_head();
}

// Byte by byte, so that the inflater stands at the first one of the blob.
bool LooseBlob::read_head() {
    std::string head;
    for (char next = 1; head.size() < kLongestHead; head += next) {
        if (read(&next, 1) != 1) return false;
        if (next) continue;
        constexpr std::string_view kBlob = "blob ";
        if (!head.starts_with(kBlob)) return false;
        const char *end = head.data() + head.size();
        const auto number = std::from_chars(head.data() + kBlob.size(), end, size_);
        return number.ec == std::errc() && number.ptr == end;
    }
    return false;
}

int64_t LooseBlob::read(void *bytes, size_t size) {
    state_.next_out = static_cast<Bytef *>(bytes);
    state_.avail_out = static_cast<uInt>(size);
    while (state_.avail_out && !ended_) {
        if (!state_.avail_in) {
            state_.next_in = block_.data();
            state_.avail_in =
                static_cast<uInt>(fread(block_.data(), 1, block_.size(), file_.get()));
            if (!state_.avail_in) return -1;
        }
        const int code = inflate(&state_, Z_NO_FLUSH);
        ended_ = code == Z_STREAM_END;
        if (code != Z_OK && !ended_) return -1;
    }
    return static_cast<int64_t>(size - state_.avail_out);
}

} // namespace zev
