// An ASCII DXF file is a row of groups, each of two lines: a number, the group code, which blanks
// may surround, and a value. Lines end in LF or CR LF, mixed at will, the last one perhaps in
// nothing. Group 0 begins a record; SECTION and ENDSEC enclose sections, EOF ends the file, and
// what follows it has no form. Group 999 is a comment and may stand anywhere. Values are bytes:
// any encoding, NUL included, passes through.

#include "dxf/reader.hpp"

#include "host.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace dxf {

namespace {

// Codes with a meaning of their own here.
enum Code : int {
    kRecord = 0,
    kText = 1,
    kName = 2,
    kHandle = 5,
    kLayer = 8,
    kVariable = 9,
    kX = 10,
    kY = 20,
    kZ = 30,
    kControl = 102, // {name opens, } closes a list of other objects' handles
    kDimstyleHandle = 105,
    kComment = 999,
    kExtended = 1000 // and above: data of applications
};

struct Group {
    int code = 0;
    std::string_view value; // without its line end
    size_t begin = 0;
    size_t end = 0;
};

std::string_view trim(std::string_view text) {
    size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// All of `text` as a number, or nothing.
template <class T> std::optional<T> parse(std::string_view text, auto... base) {
    std::string_view digits = trim(text);
    T value{};
    auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, base...);
    if (error != std::errc() || end != digits.data() + digits.size()) return {};
    return value;
}

class Groups {
  public:
    Groups(std::string_view bytes, const std::string &name) : bytes_(bytes), name_(name) {
        if (bytes.starts_with("\xEF\xBB\xBF")) position_ = 3;
    }

    // False at the end of the bytes; a group of one line only is a failure.
    bool next(Group &group) {
        if (position_ >= bytes_.size()) return false;
        group.begin = position_;
        if (!plain_code(group.code)) {
            std::string_view code = line();
            auto number = parse<int>(code);
            if (!number)
                fail(line_ == 1 ? "this is no DXF file: a group code is expected here, not \"%s\""
                                : "a group code is expected here, not \"%s\"",
                     code);
            group.code = *number;
        }
        if (position_ >= bytes_.size()) fail(host::say("the file is cut in the middle of a group"));
        group.value = line();
        group.end = position_;
        return true;
    }

    [[noreturn]] void fail(const std::string &why) const {
        std::string place = name_ + ":" + std::to_string(std::max<uint64_t>(line_, 1));
        throw host::Failed(host::kOther, place + ": " + why);
    }

    [[noreturn]] void fail(const char *why, std::string_view found) const {
        std::string shown(found.substr(0, 24)); // short, without control characters
        auto odd = [](char c) { return static_cast<unsigned char>(c - 32) > 94; };
        std::replace_if(shown.begin(), shown.end(), odd, '?');
        fail(host::say(why, found.size() > 24 ? shown + "..." : shown));
    }

  private:
    // Nearly every code is blanks, a few digits and a line end: half of all lines, read in one go.
    bool plain_code(int &code) {
        const char *at = bytes_.data() + position_, *end = bytes_.data() + bytes_.size();
        while (at != end && *at == ' ') ++at;
        const char *digits = at;
        int number = 0;
        for (; at != end && at - digits < 5 && *at >= '0' && *at <= '9'; ++at)
            number = number * 10 + (*at - '0');
        if (at == digits) return false;
        if (at != end && *at == '\r') ++at;
        if (at == end || *at != '\n') return false;
        code = number;
        position_ = static_cast<size_t>(at + 1 - bytes_.data());
        ++line_;
        return true;
    }

    std::string_view line() {
        ++line_;
        const char *from = bytes_.data() + position_;
        size_t left = bytes_.size() - position_;
        auto *end = static_cast<const char *>(memchr(from, '\n', left));
        size_t length = end ? static_cast<size_t>(end - from) : left;
        position_ += end ? length + 1 : length;
        if (length && from[length - 1] == '\r') --length;
        return {from, length};
    }

    std::string_view bytes_;
    const std::string &name_;
    size_t position_ = 0;
    uint64_t line_ = 0; // the last one taken
};

class Splitter {
  public:
    Splitter(std::string_view bytes, const std::string &name)
        : bytes_(bytes), groups_(bytes, name) {}

    Document run() {
        Group group;
        begin(group);
        do {
            if (group.code == kRecord && trim(group.value) == "EOF") return finish(group.begin);
            if (group.code == kRecord)
                mark(group);
            else if (section_ == Section::unnamed)
                enter(group);
            else if (part_.kind == Kind::object)
                inside_object(group);
            else if (part_.kind == Kind::header)
                inside_header(group);
        } while (groups_.next(group));
        groups_.fail(host::say("the file is cut: its EOF mark is missing"));
    }

  private:
    enum class Section : uint8_t { none, unnamed, header, classes, records, foreign, other };

    // Comments may come first; then it must be a section, or the end of an empty drawing.
    void begin(Group &group) {
        if (bytes_.empty()) groups_.fail(host::say("this is no DXF file: it is empty"));
        if (bytes_.substr(0, 64).find("Binary DXF\r\n\x1a") != std::string_view::npos)
            groups_.fail(host::say("this is binary DXF; save the drawing as ASCII DXF"));
        while (groups_.next(group) && group.code == kComment) {
        }
        std::string_view word = trim(group.value);
        if (group.code != kRecord || (word != "SECTION" && word != "EOF"))
            groups_.fail("this is no DXF file: a section is expected here, not \"%s\"", word);
    }

    // Group 0: a section begins or ends, or the next record of one begins.
    void mark(const Group &group) {
        std::string_view word = trim(group.value);
        if (word == "SECTION" || word == "ENDSEC") {
            cut(Kind::literal, group.begin);
            section_ = word == "SECTION" ? Section::unnamed : Section::none;
        } else if (section_ == Section::records) {
            begin_object(word, group.begin);
        } else if (section_ == Section::foreign) {
            begin_foreign(word, group.begin);
        } else if (section_ == Section::classes && word == "CLASS") {
            cut(Kind::symbol, group.begin);
        } else if (section_ == Section::classes) {
            cut(Kind::literal, group.begin);
        }
    }

    // Group 2 behind SECTION gives its name. Of several HEADERs the first is the header block.
    void enter(const Group &group) {
        if (group.code == kComment) return;
        std::string_view name = group.code == kName ? trim(group.value) : std::string_view();
        section_ = Section::other;
        if (name == "HEADER" && !header_seen_) {
            section_ = Section::header;
            header_seen_ = true;
            cut(Kind::header, group.end);
        } else if (name == "CLASSES") {
            section_ = Section::classes;
        } else if (name == "TABLES" || name == "BLOCKS" || name == "ENTITIES" ||
                   name == "OBJECTS") {
            section_ = Section::records;
        } else if (!name.empty()) {
            section_ = Section::foreign;
            begin_foreign(name, group.begin);
        }
    }

    void begin_object(std::string_view type, size_t position) {
        cut(Kind::object, position);
        part_.type = type;
    }

    // A section of which nothing is known but its name, which may hold a picture or solids: its
    // name with what stands before the first record, then each record. Nothing in them is taken
    // for a handle or a layer.
    void begin_foreign(std::string_view type, size_t position) {
        begin_object(type, position);
        past_own_data_ = true;
    }

    // The handle is the first one outside of lists of handles and before application data.
    void inside_object(const Group &group) {
        if (group.code >= kExtended) past_own_data_ = true;
        if (past_own_data_) return;
        if (group.code == kControl)
            in_list_ = trim(group.value).starts_with('{');
        else if (in_list_)
            return;
        else if (group.code == kHandle || group.code == kDimstyleHandle)
            inside_handle(group);
        else if (group.code == kLayer && part_.layer.empty())
            part_.layer = trim(group.value);
    }

    void inside_handle(const Group &group) {
        bool own = (group.code == kDimstyleHandle) == (part_.type == "DIMSTYLE");
        if (own && !handle_seen_) part_.handle = handle(group.value);
        handle_seen_ |= own;
    }

    // Zero, what reaches into our own numbers, and what is no number leave a record without one.
    static uint64_t handle(std::string_view value) {
        uint64_t number = parse<uint64_t>(value, 16).value_or(0);
        return number < kFirstNumber ? number : 0;
    }

    void inside_header(const Group &group) {
        if (group.code == kVariable)
            variable_ = trim(group.value);
        else if (variable_ == "$TITLE" && group.code == kText)
            document_.title = trim(group.value);
        else if (variable_ == "$EXTMIN")
            coordinate(document_.minimum, group);
        else if (variable_ == "$EXTMAX")
            coordinate(document_.maximum, group);
    }

    static void coordinate(std::array<std::optional<double>, 3> &point, const Group &group) {
        const size_t axis = group.code == kX ? 0 : group.code == kY ? 1 : 2;
        if (axis == 2 && group.code != kZ) return;
        point[axis] = parse<double>(group.value);
        // Some programs write inf or nan for an empty drawing; JSON has no word for them.
        if (point[axis] && !std::isfinite(*point[axis])) point[axis].reset();
    }

    // Ends the part at hand where the next one begins. Literals run on; an empty header counts.
    void cut(Kind next, size_t position) {
        if (next == Kind::literal && part_.kind == Kind::literal) return;
        part_.bytes = bytes_.substr(part_begin_, position - part_begin_);
        if (!part_.bytes.empty() || part_.kind == Kind::header) document_.parts.push_back(part_);
        part_ = Part{next, 0, {}, {}, {}};
        part_begin_ = position;
        handle_seen_ = in_list_ = past_own_data_ = false;
    }

    // The mark itself and whatever follows it is one literal.
    Document finish(size_t position) {
        cut(Kind::literal, position);
        part_.bytes = bytes_.substr(part_begin_);
        document_.parts.push_back(part_);
        return std::move(document_);
    }

    std::string_view bytes_;
    Groups groups_;
    Document document_;
    Part part_{Kind::literal, 0, {}, {}, {}};
    size_t part_begin_ = 0;
    Section section_ = Section::none;
    bool header_seen_ = false;
    bool handle_seen_ = false;
    bool in_list_ = false;
    bool past_own_data_ = false;
    std::string_view variable_; // of the header, whose values come next
};

} // namespace

Document split(std::string_view bytes, const std::string &name) {
    return Splitter(bytes, name).run();
}

std::string_view record_type(std::string_view record) {
    size_t first = record.find('\n');
    if (first == std::string_view::npos) return {};
    const auto code = parse<int>(record.substr(0, first));
    if (code != kRecord && code != kName) return {};
    std::string_view rest = record.substr(first + 1);
    return trim(rest.substr(0, rest.find('\n')));
}

} // namespace dxf
