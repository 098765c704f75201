// DrawingVersion: the manifest of a drawing, of a commit or as its work file has it.
#pragma once

#include "copy.hpp"
#include "dxf/manifest.hpp"
#include "verb.hpp"

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

} // namespace host
