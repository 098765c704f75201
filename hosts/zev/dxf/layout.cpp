// The DS block of a drawing that came from DXF:
//
//   offset 0   4 bytes   "ZDXF"
//          4   1 byte    version, 1
//          5   steps, one after the other, to the end mark and the end of the block
//
//   step 0               end
//   step 1   n, n bytes  these bytes
//   step 2               the header block
//   step 3   n           the next n classes, in the order of the drawing's list
//   step 4   n           the next n objects, likewise
//
// A step is one byte; n is 1 to 2^63 - 1 in groups of seven bits, the lowest first, each byte but
// the last with its top bit set. The header comes at most once. A change of objects that keeps
// their number leaves the block as it was.

#include "dxf/layout.hpp"

namespace dxf {

namespace {

constexpr std::string_view kMagic("ZDXF\x01", 5);

enum Step : uint8_t { kEnd, kLiteral, kHeader, kSymbols, kObjects };

void put_number(std::string &out, uint64_t number) {
    for (; number >= 0x80; number >>= 7) out += static_cast<char>(number | 0x80);
    out += static_cast<char>(number);
}

void put_step(std::string &out, Step step, uint64_t count) {
    out += static_cast<char>(step);
    put_number(out, count);
}

class Player {
  public:
    Player(std::string_view steps, uint64_t symbols, uint64_t objects, const LayoutVisitor &visitor)
        : left_(steps), symbols_(symbols), objects_(objects), visitor_(visitor) {}

    bool run() {
        while (!left_.empty()) {
            auto step = static_cast<uint8_t>(left_.front());
            left_.remove_prefix(1);
            if (step == kEnd) return left_.empty() && !symbols_ && !objects_;
            if (!play(step)) return false;
        }
        return false;
    }

  private:
    bool play(uint8_t step) {
        switch (step) {
        case kLiteral:
            return literal();
        case kHeader:
            return header();
        case kSymbols:
            return take(symbols_, visitor_.symbols);
        case kObjects:
            return take(objects_, visitor_.objects);
        default:
            return false;
        }
    }

    bool literal() {
        uint64_t count = number();
        if (!count || count > left_.size()) return false;
        visitor_.literal(left_.substr(0, count));
        left_.remove_prefix(count);
        return true;
    }

    bool header() {
        if (header_seen_) return false;
        header_seen_ = true;
        visitor_.header();
        return true;
    }

    bool take(uint64_t &available, const std::function<void(uint64_t)> &visit) {
        uint64_t count = number();
        if (!count || count > available) return false;
        available -= count;
        visit(count);
        return true;
    }

    // 0, which no step uses, stands for a bad one.
    uint64_t number() {
        uint64_t value = 0;
        for (unsigned shift = 0; shift < 63 && !left_.empty(); shift += 7) {
            auto byte = static_cast<uint8_t>(left_.front());
            left_.remove_prefix(1);
            value |= uint64_t{byte & 0x7Fu} << shift;
            if (byte < 0x80) return value;
        }
        return 0;
    }

    std::string_view left_;
    uint64_t symbols_, objects_; // not yet used
    bool header_seen_ = false;
    const LayoutVisitor &visitor_;
};

} // namespace

std::string write_layout(const std::vector<Part> &parts) {
    std::string out(kMagic);
    for (size_t i = 0; i < parts.size();) {
        const Kind kind = parts[i].kind;
        size_t run = i + 1;
        if (kind == Kind::literal) {
            put_step(out, kLiteral, parts[i].bytes.size());
            out += parts[i].bytes;
        } else if (kind == Kind::header) {
            out += static_cast<char>(kHeader);
        } else {
            while (run < parts.size() && parts[run].kind == kind) ++run;
            put_step(out, kind == Kind::symbol ? kSymbols : kObjects, run - i);
        }
        i = run;
    }
    return out += static_cast<char>(kEnd);
}

bool read_layout(std::string_view block, uint64_t symbols, uint64_t objects,
                 const LayoutVisitor &visitor) {
    if (!block.starts_with(kMagic)) return false;
    return Player(block.substr(kMagic.size()), symbols, objects, visitor).run();
}

} // namespace dxf
