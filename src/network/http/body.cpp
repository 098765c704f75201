// Bodies on their way in. What holds: no call decodes more than one block, and nothing is decoded
// beyond what the request may have.
#include "network/http/body.hpp"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "network/http/message.hpp"
#include "network/tcp/tcp.hpp"
#include "zev/str.h"

#include <cerrno>

namespace zev {

namespace {

constexpr int kBad = 400, kTooLarge = 413;

} // namespace

// ---- Inflater

Inflater::~Inflater() {
    if (ready_) inflateEnd(&state_);
}

bool Inflater::begin(const zwchar *encoding) {
    constexpr int kZlib = 15, kGzip = 15 + 16; // with the largest window, by zlib's numbers
    const bool gzip = zStrcasesameW(encoding, u"gzip");
    if (!gzip && !zStrcasesameW(encoding, u"deflate")) return false;
    ready_ = inflateInit2(&state_, gzip ? kGzip : kZlib) == Z_OK;
    return ready_;
}

bool Inflater::step(std::string_view &in, char *out, size_t size, size_t *made) {
    *made = 0;
    if (ended_) return in.empty();
    state_.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(in.data()));
    state_.avail_in = static_cast<uInt>(in.size());
    state_.next_out = reinterpret_cast<Bytef *>(out);
    state_.avail_out = static_cast<uInt>(size);
    const int code = inflate(&state_, Z_NO_FLUSH);
    in.remove_prefix(in.size() - state_.avail_in);
    *made = size - state_.avail_out;
    ended_ = code == Z_STREAM_END;
    return ended_ ? in.empty() : code == Z_OK || code == Z_BUF_ERROR; // the latter: nothing to do
}

// ---- BodyIntake

// By the fields of the head, when the first bytes come: a body that has none needs no decoding.
bool BodyIntake::begin() {
    begun_ = true;
    const zwchar *encoding = zHttpRequestContentEncoding(request_);
    if (!encoding) return true;
    inflater_ = std::make_unique<Inflater>();
    if (inflater_->begin(encoding)) return true;
    fault_ = kBad;
    return false;
}

bool BodyIntake::put(std::string_view bytes) {
    put_ += bytes.size();
    if (put_ > exchange_->most) return fault_ = kTooLarge, true;
    const auto taken = exchange_->take(bytes);
    streams_ = taken != Exchange::Taken::no;
    enough_ = taken == Exchange::Taken::enough;
    return streams_ || append_body(request_->body, bytes.data(), bytes.size());
}

bool BodyIntake::take(std::string_view bytes) {
    if (fault_ || enough_ || bytes.empty()) return true;
    if (!begun_ && !begin()) return true;
    if (!inflater_) return put(bytes);
    waiting_.append(bytes);
    return true;
}

// What filled the block may have more behind it, without any input.
bool BodyIntake::step() {
    if (fault_ || enough_ || !has_more()) return waiting_.clear(), full_ = false, true;
    char block[kReadBlock];
    size_t made = 0;
    std::string_view in = waiting_;
    const bool sound = inflater_->step(in, block, sizeof block, &made);
    waiting_.erase(0, waiting_.size() - in.size());
    full_ = made == sizeof block && !inflater_->ended();
    if (made && !put({block, made})) return false;
    if (!sound && !fault_) fault_ = kBad;
    if (waiting_.empty() && !full_) waiting_.shrink_to_fit();
    return true;
}

// A body that was there and had nothing in it is one all the same.
bool BodyIntake::end() {
    if (fault_ || enough_) return true;
    if (inflater_) {
        if (!inflater_->ended()) return fault_ = kBad, true;
        if (!put_ && !put("")) return false;
        zHttpHeaderRemove(&request_->header, u"Content-Encoding");
    }
    return complete_body(request_->body);
}

} // namespace zev
