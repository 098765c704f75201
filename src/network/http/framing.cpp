// Framing of HTTP messages. A head is collected and judged as a whole; a body passes through, its
// chunks looked at byte by byte where they begin and end.
#include "network/http/framing.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace zev {

namespace {

enum { kBad = 400, kTooLarge = 413, kTargetTooLong = 414, kHeadTooLarge = 431, kVersion = 505 };

constexpr uint32_t kExtensionMax = 256; // of a chunk; nobody reads them
constexpr uint32_t kTrailerMax = 8192;  // dropped, but not endless

bool is_control(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

// What a name of a field, or of a method, is made of.
bool is_token(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte >= 0x7F) return false;
    return std::string_view("\"(),/:;<=>?@[\\]{}").find(c) == std::string_view::npos;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool same(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, lower, lower);
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// The fields that decide where a message ends, whose content it has and who sent it: two of one
// kind would let two readers choose differently.
constexpr std::string_view kOnce[] = {
    "host",       "content-length", "transfer-encoding", "content-encoding", "x-zev-user",
    "x-zev-code", "expect",
};

// The lines of a head, each without its CR LF.
class HeadReader {
  public:
    HeadReader(std::string_view head, const HttpLimits &limits, HeadFacts &facts)
        : rest_(head), limits_(limits), facts_(facts) {}

    int read_request() {
        std::string_view line;
        if (!next_line(&line)) return kBad;
        const size_t method = line.find(' '), version = line.rfind(' ');
        if (method == line.npos || method == version || !method) return kBad;
        const std::string_view target = line.substr(method + 1, version - method - 1);
        if (!std::ranges::all_of(line.substr(0, method), is_token)) return kBad;
        if (target.find_first_of(" \t") != target.npos) return kBad;
        if (target.size() > limits_.target) return kTargetTooLong;
        if (const int fault = read_version(line.substr(version + 1))) return fault;
        if (const int fault = read_fields()) return fault;
        if (chunked_ && (old_ || has_length_)) return kBad;
        if (!old_ && !seen_[0]) return kBad; // no Host
        facts_.body =
            chunked_ ? HeadFacts::chunked : (facts_.length ? HeadFacts::sized : HeadFacts::none);
        if (old_) facts_.expects = false;
        return facts_.length > limits_.body ? kTooLarge : 0;
    }

    int read_response() {
        std::string_view line;
        if (!next_line(&line) || line.size() < 12 || line[8] != ' ') return kBad;
        if (const int fault = read_version(line.substr(0, 8))) return fault;
        int status = 0;
        const char *digits = line.data() + 9;
        if (std::from_chars(digits, digits + 3, status).ptr != digits + 3 || status < 100)
            return kBad;
        if (line.size() > 12 && line[12] != ' ') return kBad;
        if (const int fault = read_fields()) return fault;
        if (chunked_ && (old_ || has_length_)) return kBad;
        facts_.interim = status < 200;
        const bool bare = facts_.interim || status == 204 || status == 304;
        if (bare || (has_length_ && !facts_.length)) return facts_.length = 0, 0;
        facts_.body = chunked_      ? HeadFacts::chunked
                      : has_length_ ? HeadFacts::sized
                                    : HeadFacts::until_close;
        return facts_.length > limits_.body ? kTooLarge : 0;
    }

  private:
    bool next_line(std::string_view *line) {
        const size_t end = rest_.find("\r\n");
        if (end == rest_.npos) return false;
        *line = rest_.substr(0, end);
        rest_.remove_prefix(end + 2);
        // A tab may stand in a value; nothing else below a blank may, CR and LF alone least of all.
        return std::ranges::none_of(*line, [](char c) { return c != '\t' && is_control(c); });
    }

    int read_version(std::string_view text) {
        old_ = text == "HTTP/1.0";
        if (old_ || text == "HTTP/1.1") return 0;
        return text.starts_with("HTTP/") ? kVersion : kBad;
    }

    int read_fields() {
        std::string_view line;
        for (uint32_t count = 0; next_line(&line); ++count) {
            if (line.empty()) return rest_.empty() ? 0 : kBad;
            if (count == limits_.fields) return kHeadTooLarge;
            const size_t colon = line.find(':'); // a folded line has a blank in its name
            if (colon == line.npos || !colon) return kBad;
            const std::string_view name = line.substr(0, colon);
            if (!std::ranges::all_of(name, is_token)) return kBad;
            if (const int fault = read_field(name, trimmed(line.substr(colon + 1)))) return fault;
        }
        return kBad;
    }

    int read_field(std::string_view name, std::string_view value) {
        for (size_t i = 0; i < std::size(kOnce); ++i) {
            if (!same(name, kOnce[i])) continue;
            if (seen_[i]) return kBad;
            seen_[i] = true;
        }
        if (same(name, "content-length")) return read_length(value);
        if (same(name, "transfer-encoding")) {
            chunked_ = same(value, "chunked");
            return chunked_ ? 0 : kBad;
        }
        if (same(name, "upgrade")) facts_.upgrade = true;
        if (same(name, "expect")) {
            facts_.expects = same(value, "100-continue");
            return facts_.expects ? 0 : kBad;
        }
        return 0;
    }

    int read_length(std::string_view value) {
        const char *end = value.data() + value.size();
        const auto read = std::from_chars(value.data(), end, facts_.length);
        has_length_ = true;
        if (read.ec == std::errc::result_out_of_range) return kTooLarge;
        return value.empty() || read.ptr != end ? kBad : 0;
    }

    std::string_view rest_;
    const HttpLimits &limits_;
    HeadFacts &facts_;
    bool old_ = false; // HTTP/1.0
    bool chunked_ = false, has_length_ = false;
    std::array<bool, std::size(kOnce)> seen_{};
};

// Whether a line ends in anything but CR LF, from a byte on; a CR at the end waits for what
// follows. A head with such a line may never be whole, so it is told while the head still comes.
bool ends_line_badly(std::string_view head, size_t from) {
    for (size_t i = from; i < head.size(); ++i)
        if ((head[i] == '\n') != (i && head[i - 1] == '\r')) return true;
    return false;
}

} // namespace

int check_head(std::string_view head, bool request, const HttpLimits &limits, HeadFacts *facts) {
    *facts = {};
    HeadReader reader(head, limits, *facts);
    return request ? reader.read_request() : reader.read_response();
}

// ---- Framing

bool Framing::refuse(int status) {
    fault_ = status;
    return false;
}

void Framing::reset(bool bare) {
    state_ = State::head;
    bare_ = bare;
    head_.clear();
    facts_ = {};
    left_ = body_ = 0;
    digits_ = line_ = 0;
    ends_line_ = skipped_ = false;
    fault_ = 0;
}

size_t Framing::take(std::string_view bytes) {
    if (fault_ || is_complete()) return 0;
    switch (state_) {
    case State::head:
        return take_head(bytes);
    case State::sized: {
        const size_t count = static_cast<size_t>(std::min<uint64_t>(bytes.size(), left_));
        left_ -= count;
        if (!left_) state_ = State::done;
        return count;
    }
    case State::open:
        body_ += bytes.size();
        if (body_ > limits_.body) refuse(kTooLarge);
        return bytes.size();
    default:
        return take_chunked(bytes);
    }
}

// Looks for the empty line also where it lies across two pieces. One empty line ahead is what some
// clients send behind a body.
size_t Framing::take_head(std::string_view bytes) {
    const size_t known = head_.size(), most = limits_.head + 4;
    head_.append(bytes.substr(0, most - std::min(known, most)));
    size_t skipped = 0;
    if (request_ && !skipped_ && head_.starts_with("\r\n")) {
        skipped_ = true;
        head_.erase(0, skipped = 2);
    }
    const size_t end = head_.find("\r\n\r\n", known < 3 ? 0 : known - 3);
    const std::string_view lines = std::string_view(head_).substr(0, end);
    if (ends_line_badly(lines, skipped ? 0 : std::min(known, lines.size())))
        return refuse(kBad), bytes.size();
    if (end == head_.npos) {
        if (head_.size() > limits_.head) refuse(kHeadTooLarge);
        return bytes.size();
    }
    head_.resize(end + 4);
    if (head_.size() > limits_.head) return refuse(kHeadTooLarge), bytes.size();
    const int fault = check_head(head_, request_, limits_, &facts_);
    if (fault && !(bare_ && fault == kTooLarge)) return refuse(fault), bytes.size();
    begin_body();
    return skipped + head_.size() - known;
}

void Framing::begin_body() {
    if (bare_) facts_.body = HeadFacts::none;
    left_ = facts_.length;
    switch (facts_.body) {
    case HeadFacts::none:
        state_ = State::done;
        break;
    case HeadFacts::sized:
        state_ = State::sized;
        break;
    case HeadFacts::chunked:
        state_ = State::chunk_size;
        break;
    case HeadFacts::until_close:
        state_ = State::open;
        break;
    }
}

size_t Framing::take_chunked(std::string_view bytes) {
    size_t at = 0;
    while (at < bytes.size() && !is_complete()) {
        if (state_ == State::chunk_data) {
            const auto count = static_cast<size_t>(std::min<uint64_t>(bytes.size() - at, left_));
            at += count;
            left_ -= count;
            if (!left_) state_ = State::chunk_data_cr;
        } else if (!step(bytes[at++])) {
            break;
        }
    }
    return at;
}

// One byte of what stands around the chunks.
bool Framing::step(char byte) {
    switch (state_) {
    case State::chunk_size:
        if (byte == ';' && digits_) return digits_ = 0, state_ = State::chunk_extension, true;
        if (byte == '\r' && digits_) return state_ = State::chunk_size_end, true;
        return add_digit(byte);
    case State::chunk_extension:
        if (byte == '\r') return state_ = State::chunk_size_end, true;
        return ++digits_ > kExtensionMax || is_control(byte) ? refuse(kBad) : true;
    case State::chunk_size_end:
        return byte == '\n' ? end_chunk_size() : refuse(kBad);
    case State::chunk_data_cr:
        return byte == '\r' ? (state_ = State::chunk_data_lf, true) : refuse(kBad);
    case State::chunk_data_lf:
        return byte == '\n' ? (state_ = State::chunk_size, true) : refuse(kBad);
    default:
        return end_trailer_line(byte);
    }
}

bool Framing::add_digit(char byte) {
    const char digit = lower(byte);
    const bool letter = digit >= 'a' && digit <= 'f';
    if (!letter && !(digit >= '0' && digit <= '9')) return refuse(kBad);
    if (++digits_ > 15) return refuse(kTooLarge);
    left_ = left_ * 16 + static_cast<uint64_t>(letter ? digit - 'a' + 10 : digit - '0');
    return true;
}

bool Framing::end_chunk_size() {
    digits_ = 0;
    body_ += left_;
    if (body_ > limits_.body) return refuse(kTooLarge);
    state_ = left_ ? State::chunk_data : State::trailer;
    return true;
}

// Lines behind the last chunk, up to an empty one; their content counts for nothing.
bool Framing::end_trailer_line(char byte) {
    if (++digits_ > kTrailerMax) return refuse(kHeadTooLarge);
    if (byte == '\r' && !ends_line_) return ends_line_ = true, true;
    if (ends_line_ != (byte == '\n')) return refuse(kBad);
    if (!ends_line_) return is_control(byte) && byte != '\t' ? refuse(kBad) : (++line_, true);
    ends_line_ = false;
    if (!std::exchange(line_, 0)) state_ = State::done;
    return true;
}

} // namespace zev
