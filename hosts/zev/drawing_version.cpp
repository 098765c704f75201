// Bytes of a .dwx file, as a whole in memory: sixteen an object.
#include "drawing_version.hpp"

#include "bytes.hpp"
#include "server_history.hpp"

namespace host {

namespace {

std::string read_work_file(const WorkingCopy &copy, const std::string &path) {
    const std::u16string file = copy.absolute(path).u16string();
    if (!zPathFileExists(file.c_str()))
        throw Failed(kNotFound, say("%s: no such file in the work directory", path));
    const OwnedFile in(check(zFileOpen(file.c_str(), u"rb"), path));
    std::string bytes;
    char block[1 << 16];
    while (const size_t count = fread(block, 1, sizeof block, in.get())) bytes.append(block, count);
    if (ferror(in.get())) throw Failed(kSystem, say("%s: can't be read", path));
    return bytes;
}

std::string read_stored(const WorkingCopy &copy, const Oid &id, const std::string &name) {
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    Bytes stored;
    read_object(odb.get(), &id, stored, name);
    return std::move(stored.data);
}

std::string read(const Host &host, const WorkingCopy &copy, const std::string &path,
                 const std::string &revision, const std::string &name) {
    if (revision.empty()) return read_work_file(copy, path);
    const OwnedCommit commit = commit_with(host, copy, revision, path);
    return read_stored(copy, *zTreeEntryId(copy.file(commit.get(), path).get()), name);
}

dxf::Manifest manifest_of(const std::string &bytes, const std::string &name) {
    auto read = dxf::Manifest::read(bytes);
    if (!read) throw Failed(kOther, say("%s: is no drawing", name));
    return std::move(*read);
}

} // namespace

DrawingVersion::DrawingVersion(const Host &host, const WorkingCopy &copy, const std::string &path,
                               const std::string &revision)
    : name(revision.empty() ? path : revision + ":" + path),
      bytes(read(host, copy, path, revision, name)), manifest(manifest_of(bytes, name)) {}

DrawingVersion::DrawingVersion(const WorkingCopy &copy, const Oid &id, const std::string &name)
    : name(name), bytes(read_stored(copy, id, name)), manifest(manifest_of(bytes, name)) {}

namespace {

bool is_there(const Host &host, const WorkingCopy &copy, const std::string &path,
              const std::string &revision) {
    if (revision.empty()) return copy.is_on_disk(path);
    if (revision == "HEAD" && !copy.born()) return false;
    return bool(copy.entry(commit_with(host, copy, revision, path).get(), path));
}

std::unique_ptr<DrawingVersion> read_if_there(const Host &host, const WorkingCopy &copy,
                                              const std::string &path,
                                              const std::string &revision) {
    if (!is_there(host, copy, path, revision)) return {};
    return std::make_unique<DrawingVersion>(host, copy, path, revision);
}

} // namespace

DrawingVersions::DrawingVersions(const Host &host, const WorkingCopy &copy, const std::string &path,
                                 const std::string &from, const std::string &to)
    : older_(read_if_there(host, copy, path, from.empty() ? "HEAD" : from)),
      newer_(read_if_there(host, copy, path, to)) {
    // Without both it is told where the newer one isn't.
    if (!older_ && !newer_) newer_ = std::make_unique<DrawingVersion>(host, copy, path, to);
    if (has_both() && !zOidIsEqual(&older_->manifest.table, &newer_->manifest.table))
        throw Failed(kOther, say("%s: the two versions are kept in different tables", path));
}

} // namespace host
