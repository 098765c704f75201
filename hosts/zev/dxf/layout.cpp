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
//
// Where the drawing keeps other bytes than those that were imported last:
//
//   offset 0   4 bytes   "ZDXF"
//          4   1 byte    version, 2
//          5   n, n bytes   steps as above, the end mark with them
//              to the end   what differs, see dxf/as_imported.cpp

#include "dxf/layout.hpp"

namespace dxf {

namespace {

constexpr std::string_view kMagic("ZDXF\x01", 5), kMagicOfTwo("ZDXF\x02", 5);

enum Step : uint8_t { kEnd, kLiteral, kHeader, kSymbols, kObjects };

void put_number(std::string &out, uint64_t number) {
    for (; number >= 0x80; number >>= 7) out += static_cast<char>(number | 0x80);
    out += static_cast<char>(number);
}

void put_step(std::string &out, Step step, uint64_t count) {
    out += static_cast<char>(step);
    put_number(out, count);
}

// 0, which nothing uses, stands for a bad one.
uint64_t take_number(std::string_view &left) {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 63 && !left.empty(); shift += 7) {
        auto byte = static_cast<uint8_t>(left.front());
        left.remove_prefix(1);
        value |= uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80) return value;
    }
    return 0;
}

// Both halves of a block of either version, without what stands in front of them.
struct Halves {
    std::string_view steps, differences;
};

Halves halves_of(std::string_view block) {
    if (block.starts_with(kMagic)) return {block.substr(kMagic.size()), {}};
    if (!block.starts_with(kMagicOfTwo)) return {};
    block.remove_prefix(kMagicOfTwo.size());
    const uint64_t size = take_number(block);
    if (size >= block.size()) return {};
    return {block.substr(0, size), block.substr(size)};
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

    uint64_t number() { return take_number(left_); }

    std::string_view left_;
    uint64_t symbols_, objects_; // not yet used
    bool header_seen_ = false;
    const LayoutVisitor &visitor_;
};

std::string steps_of(const std::vector<Part> &parts) {
    std::string out;
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

} // namespace

std::string write_layout(const std::vector<Part> &parts, std::string_view differences) {
    const std::string steps = steps_of(parts);
    if (differences.empty()) return std::string(kMagic) + steps;
    std::string out(kMagicOfTwo);
    put_number(out, steps.size());
    out += steps;
    return out += differences;
}

std::string_view differences_in(std::string_view layout) { return halves_of(layout).differences; }

std::string without_differences(std::string_view layout) {
    if (differences_in(layout).empty()) return std::string(layout);
    return std::string(kMagic) + std::string(halves_of(layout).steps);
}

bool read_layout(std::string_view block, uint64_t symbols, uint64_t objects,
                 const LayoutVisitor &visitor) {
    return Player(halves_of(block).steps, symbols, objects, visitor).run();
}

} // namespace dxf
