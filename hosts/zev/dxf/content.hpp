// Content: versions of one drawing with all their rows, read in one walk over its table.
#pragma once

#include "dxf/manifest.hpp"
#include "dxf/reader.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace dxf {

struct Object {
    DrawingKey key;          // its object number is the handle, or from kFirstNumber on
    std::string_view record; // its groups as they were imported
};

// Blocks of one version. Everything is lent.
struct Content {
    std::string_view header, summary, layout;
    std::vector<std::string_view> classes;
    std::vector<Object> objects; // in the order of the file
};

// The parts of a file that was never a drawing: keys have no tag.
Content content_of(const Document &document);

// The keys of one version.
struct Keys {
    explicit Keys(const Manifest &manifest);
    explicit Keys(Drawing *drawing);
    Oid table;
    DrawingKey header, summary, layout;
    std::vector<DrawingKey> classes, objects;
};

class Contents {
  public:
    // Of versions in one table, which has to be in this working copy; a row that several have is
    // held once. Throws when rows are missing, or are not those that were imported; `name` is for
    // messages.
    Contents(Repository *repository, const std::vector<Keys> &versions, const std::string &name,
             const Notify *notify);
    Contents(const Contents &) = delete;
    Contents &operator=(const Contents &) = delete;
    const Content &operator[](size_t version) const { return contents_[version]; }

  private:
    std::string bytes_; // what the contents lend from
    std::vector<Content> contents_;
};

// The bytes of which form: those of the drawing's version, or those of the file that was imported
// last. They are the same unless that import kept some of the version before it.
enum class Form : uint8_t { version, imported };

// The DXF file that a version came from, in pieces. Throws when the layout is damaged or none, and
// for the imported form of a drawing that was changed by something else than an import since.
void write_file(const Content &content, const std::string &name,
                const std::function<void(std::string_view)> &write, Form form = Form::version);

// The parts of the file that was imported last, each as a whole, good during the call. False when
// they are not known, or come to more than `most` bytes.
bool visit_imported(const Content &content, uint64_t most,
                    const std::function<void(std::string_view)> &visit);

} // namespace dxf
