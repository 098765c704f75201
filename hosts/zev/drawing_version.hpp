// DrawingVersion: the manifest of a drawing, of a commit or as its work file has it.
#pragma once

#include "copy.hpp"
#include "dxf/manifest.hpp"
#include "verb.hpp"

#include <memory>

namespace host {

struct DrawingVersion {
    // Of the work file where `revision` is empty. Throws for what is not there or no drawing.
    DrawingVersion(const Host &host, const WorkingCopy &copy, const std::string &path,
                   const std::string &revision);
    // Of an object of the store; `name` is for messages.
    DrawingVersion(const WorkingCopy &copy, const Oid &id, const std::string &name);

    std::string name; // "REV:PATH", or the path
    std::string bytes;
    dxf::Manifest manifest; // lends from the bytes
};

// Two versions to be compared. One that hasn't got the drawing, as a HEAD without commits, is as
// one without objects.
class DrawingVersions {
  public:
    // An empty `from` is HEAD, an empty `to` the work file. Throws where neither has the drawing,
    // and where they have it in different tables.
    DrawingVersions(const Host &host, const WorkingCopy &copy, const std::string &path,
                    const std::string &from, const std::string &to);

    const DrawingVersion *older() const { return older_.get(); } // may be null
    const DrawingVersion *newer() const { return newer_.get(); } // likewise
    bool has_both() const { return older_ && newer_; }
    const dxf::Manifest &from() const { return older_ ? older_->manifest : none_; }
    const dxf::Manifest &to() const { return newer_ ? newer_->manifest : none_; }
    const Oid &table() const { return (newer_ ? newer_ : older_)->manifest.table; }

  private:
    const std::unique_ptr<DrawingVersion> older_;
    std::unique_ptr<DrawingVersion> newer_;
    const dxf::Manifest none_;
};

} // namespace host
