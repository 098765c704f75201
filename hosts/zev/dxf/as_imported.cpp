// Differences:
//
//   offset 0   1 byte    line end of the style: 0 LF, 1 CR LF
//          1   1 byte    width of a group code in the style, blanks in front of it
//          2  16 bytes   digest of all kept parts, by their places from 0 on: high half, low half,
//                        big-endian
//         18  the steps, as a zlib stream, to the end
//
//   n                    the n-th part from the last one on, or from the start, was imported with
//                        other bytes; 0 ends all
//     4 n + 0            the next n groups of the kept part, in the style
//     4 n + 1            the next n groups, as they are
//     4 n + 2            the next n groups are left out
//     4 n + 3, n bytes   these bytes
//     0                  end of the part; groups that are left over are left out
//
// Each number is in groups of seven bits, the lowest first, each byte but the last with its top bit
// set. So a program that writes everything in another form costs a byte or two for each record
// that it didn't change, and what it changed costs the groups that differ.

#include "dxf/as_imported.hpp"

#include "dxf/groups.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace dxf {

namespace {

constexpr size_t kHead = 18, kBlock = 1 << 16, kMaxWidth = 8;
constexpr size_t kAhead = 16;  // groups looked at for one that comes again
constexpr size_t kBehind = 64; // groups that are used up before they are let go

enum Step : uint8_t { kStyled, kSame, kSkip, kBytes };

struct Style {
    bool has_cr = false;
    size_t width = 0;
};

void append_styled(const RawGroup &group, const Style &style, std::string &out) {
    const std::string code = std::to_string(group.code);
    if (code.size() < style.width) out.append(style.width - code.size(), ' ');
    const std::string_view end = style.has_cr ? "\r\n" : "\n";
    out += code;
    out += end;
    out += group.value;
    out += end;
}

bool is_styled(const RawGroup &kept, const RawGroup &imported, const Style &style,
               std::string &scratch) {
    if (kept.code != imported.code || kept.value != imported.value) return false;
    scratch.clear();
    append_styled(kept, style, scratch);
    return scratch == imported.bytes;
}

// That of the first group found.
Style style_of(const std::vector<std::string_view> &imported) {
    for (std::string_view part : imported) {
        RawGroup group;
        if (!take_group(part, group)) continue;
        const std::string_view line = group.bytes.substr(0, group.bytes.find('\n'));
        Style style;
        style.has_cr = line.ends_with('\r');
        style.width = std::min(line.size() - style.has_cr, kMaxWidth);
        return style;
    }
    return {};
}

DrawingDigest digest_of(const std::vector<std::string_view> &parts) {
    DrawingDigest digest{};
    for (size_t i = 0; i < parts.size(); ++i)
        zDrawingDigestAddRow(&digest, i, parts[i].data(), parts[i].size());
    return digest;
}

void put_big_endian(std::string &out, uint64_t number) {
    for (int shift = 56; shift >= 0; shift -= 8) out += static_cast<char>(number >> shift);
}

uint64_t big_endian(std::string_view bytes) {
    uint64_t number = 0;
    for (size_t i = 0; i < 8; ++i) number = number << 8 | static_cast<uint8_t>(bytes[i]);
    return number;
}

// Steps on their way through the compressor into memory.
class Packer {
  public:
    Packer()
        : memory_(host::check(zMemStream(0, 0))),
          zip_(host::check(zZipStream(memory_.get(), u"deflate"))) {}

    void number(uint64_t value) {
        for (; value >= 0x80; value >>= 7) held_ += static_cast<char>(value | 0x80);
        held_ += static_cast<char>(value);
        if (held_.size() >= kBlock) flush();
    }
    void step(Step step, uint64_t count) { number(count << 2 | step); }
    void bytes(std::string_view bytes) {
        step(kBytes, bytes.size());
        held_ += bytes;
        if (held_.size() >= kBlock) flush();
    }

    void append_to(std::string &out) {
        flush();
        zZipStreamFinish(zip_.get());
        if (zStreamError(zip_.get())) host::fail_raised();
        char block[4096];
        while (const uint64_t count = zStreamRead(memory_.get(), block, sizeof block))
            out.append(block, count);
    }

  private:
    void flush() {
        if (zStreamWrite(zip_.get(), held_.data(), held_.size()) != held_.size())
            host::fail_raised();
        held_.clear();
    }

    host::OwnedStream memory_, zip_;
    std::string held_;
};

// The steps of one part.
class Comparing {
  public:
    Comparing(Packer &packer, const Style &style) : packer_(packer), style_(style) {}

    void run(std::string_view kept, std::string_view imported) {
        ahead_.clear();
        head_ = 0;
        left_ = kept;
        RawGroup group;
        while (take_group(imported, group)) take(group);
        if (!imported.empty()) literal(imported);
        end_run();
        packer_.number(0);
    }

  private:
    void take(const RawGroup &group) {
        fill();
        for (size_t i = head_; i < ahead_.size(); ++i) {
            const bool is_same = ahead_[i].bytes == group.bytes;
            if (!is_same && !is_styled(ahead_[i], group, style_, scratch_)) continue;
            if (i > head_) count(kSkip, i - head_);
            // One run goes on in its own way where a group would do in both.
            const bool goes_on = run_ && step_ == kStyled;
            const bool is_either = goes_on && is_styled(ahead_[i], group, style_, scratch_);
            count(is_same && !is_either ? kSame : kStyled, 1);
            head_ = i + 1;
            return;
        }
        literal(group.bytes);
    }

    void fill() {
        if (head_ >= kBehind) {
            ahead_.erase(ahead_.begin(), ahead_.begin() + static_cast<std::ptrdiff_t>(head_));
            head_ = 0;
        }
        RawGroup group;
        while (ahead_.size() - head_ < kAhead && take_group(left_, group)) ahead_.push_back(group);
    }

    void count(Step step, uint64_t groups) {
        if (run_ && step != step_) end_run();
        step_ = step;
        run_ += groups;
    }

    void literal(std::string_view bytes) {
        if (run_ && step_ != kBytes) end_run();
        step_ = kBytes;
        run_ += bytes.size();
        text_ += bytes;
    }

    void end_run() {
        if (run_ && step_ == kBytes)
            packer_.bytes(text_);
        else if (run_)
            packer_.step(step_, run_);
        run_ = 0;
        text_.clear();
    }

    Packer &packer_;
    const Style style_;
    std::vector<RawGroup> ahead_; // of the kept part, used up before head_
    size_t head_ = 0;
    std::string_view left_; // of it
    std::string scratch_, text_;
    Step step_ = kSame;
    uint64_t run_ = 0;
};

// Bytes that the decompressor reads.
struct BytesStream : Stream {
    explicit BytesStream(std::string_view bytes) : Stream{}, left(bytes) {
        read = [](Stream *stream, void *buffer, uint64_t count) {
            auto *self = static_cast<BytesStream *>(stream);
            const uint64_t part = self->left.copy(static_cast<char *>(buffer), count);
            self->left.remove_prefix(part);
            return part;
        };
        write = [](Stream *, const void *, uint64_t) -> uint64_t { return 0; };
        free = [](Stream *) {};
        eof = [](Stream *stream) { return static_cast<BytesStream *>(stream)->left.empty(); };
        error = [](Stream *) { return false; };
    }
    std::string_view left;
};

} // namespace

std::string write_differences(const std::vector<std::string_view> &kept,
                              const std::vector<std::string_view> &imported) {
    const Style style = style_of(imported);
    Packer packer;
    Comparing comparing(packer, style);
    size_t since = 0;
    bool differ = false;
    for (size_t i = 0; i < kept.size(); ++i) {
        ++since;
        if (kept[i].data() == imported[i].data() || kept[i] == imported[i]) continue;
        packer.number(since);
        comparing.run(kept[i], imported[i]);
        since = 0;
        differ = true;
    }
    if (!differ) return {};
    packer.number(0);
    std::string out;
    out += static_cast<char>(style.has_cr);
    out += static_cast<char>(style.width);
    const DrawingDigest digest = digest_of(kept);
    put_big_endian(out, digest.high);
    put_big_endian(out, digest.low);
    packer.append_to(out);
    return out;
}

class ImportedParts::Player {
  public:
    explicit Player(std::string_view differences)
        : bytes_(differences.size() > kHead ? differences.substr(kHead) : std::string_view()),
          zip_(host::check(zUnzipStream(&bytes_, u"deflate"))) {
        is_good_ = differences.size() > kHead && static_cast<uint8_t>(differences[0]) <= 1 &&
                   static_cast<uint8_t>(differences[1]) <= kMaxWidth;
        if (!is_good_) return;
        style_ = {differences[0] == 1, static_cast<size_t>(differences[1])};
        expected_ = {big_endian(differences.substr(10)), big_endian(differences.substr(2))};
        take_distance();
    }

    bool next(std::string_view kept, const Write &write) {
        if (!is_good_) return false;
        zDrawingDigestAddRow(&digest_, part_++, kept.data(), kept.size());
        if (!distance_ || --distance_) {
            write(kept);
            return true;
        }
        is_good_ = play(kept, write) && take_distance();
        return is_good_;
    }

    bool finish() {
        if (!is_good_ || distance_) return false;
        is_good_ = false;
        char more;
        const bool is_end =
            at_ == end_ && !zStreamRead(zip_.get(), &more, 1) && !zStreamError(zip_.get());
        return is_end && bytes_.left.empty() && digest_.high == expected_.high &&
               digest_.low == expected_.low;
    }

  private:
    bool play(std::string_view kept, const Write &write) {
        for (;;) {
            const auto at = number();
            if (!at) return false;
            if (!*at) return true;
            const uint64_t count = *at >> 2;
            const auto step = static_cast<Step>(*at & 3);
            if (!count) return false;
            if (step == kBytes ? !pass_bytes(count, write) : !groups(step, count, kept, write))
                return false;
        }
    }

    static void put(std::string &out, const Write &write) {
        if (!out.empty()) write(out);
        out.clear();
    }

    bool groups(Step step, uint64_t count, std::string_view &kept, const Write &write) {
        RawGroup group;
        std::string out;
        for (; count; --count) {
            if (!take_group(kept, group)) return false;
            if (step == kStyled) append_styled(group, style_, out);
            if (step == kSame) out += group.bytes;
            if (out.size() >= kBlock) put(out, write);
        }
        put(out, write);
        return true;
    }

    // Only as much is held as there is.
    bool pass_bytes(uint64_t count, const Write &write) {
        while (count) {
            if (at_ == end_ && !fill()) return false;
            const size_t part = std::min<uint64_t>(count, end_ - at_);
            write({block_.data() + at_, part});
            at_ += part;
            count -= part;
        }
        return true;
    }

    bool fill() {
        at_ = 0;
        end_ = zStreamRead(zip_.get(), block_.data(), block_.size());
        return end_ && !zStreamError(zip_.get());
    }

    std::optional<uint64_t> number() {
        uint64_t value = 0;
        for (unsigned shift = 0; shift < 63; shift += 7) {
            if (at_ == end_ && !fill()) return {};
            const auto byte = static_cast<uint8_t>(block_[at_++]);
            value |= uint64_t{byte & 0x7Fu} << shift;
            if (byte < 0x80) return value;
        }
        return {};
    }

    bool take_distance() {
        const auto distance = number();
        distance_ = distance.value_or(0);
        return is_good_ = distance.has_value();
    }

    BytesStream bytes_;
    host::OwnedStream zip_;
    Style style_;
    DrawingDigest expected_{}, digest_{};
    uint64_t part_ = 0, distance_ = 0; // to the next part that differs, 0 if none does
    std::array<char, kBlock> block_;   // inflated, from at_ to end_ not yet used
    size_t at_ = 0, end_ = 0;
    bool is_good_ = false;
};

ImportedParts::ImportedParts(std::string_view differences)
    : player_(std::make_unique<Player>(differences)) {}
ImportedParts::~ImportedParts() = default;
bool ImportedParts::next(std::string_view kept, const Write &write) {
    return player_->next(kept, write);
}
bool ImportedParts::finish() { return player_->finish(); }

} // namespace dxf
