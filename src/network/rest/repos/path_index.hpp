// By which paths a project's commits ever named its files and their tables: an index that is made
// from the revision records and can be thrown away at any time.
#pragma once

#include "objects/drawing/table.hpp"
#include "objects/history/revision.hpp"

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

namespace zev::rest {

// The table that a drawing tells; none for a file that is no drawing. A code of libgit2's:
// GIT_ENOTFOUND where the file isn't here, or is none.
int find_table(Repository *repository, const Oid &id, std::optional<Oid> &table);

class PathIndex {
  public:
    // Takes in what the project's references lead to by now. False where that can't be had: then
    // no answer of the index is to be trusted.
    bool refresh(Repository *repository);

    // Hands over each path of a file or of a table, or all paths, until `visit` gives true. False
    // only where the index can't be read.
    enum class Kind : char { file = 'f', table = 't' };
    using Visit = std::function<bool(std::string_view path)>;
    bool each_path(Kind kind, const Oid &id, const Visit &visit);
    bool each_path(const Visit &visit);

    // An open index; others of the process wait as long as it is held. Null in `index`, with the
    // reason raised, where there is none to be had.
    struct Lease {
        std::unique_lock<std::mutex> held;
        PathIndex *index;
    };
    static Lease open(Repository *repository);

  private:
    bool open_in(const std::u16string &directory);
    bool is_there() const; // its directory is still the one that was opened
    bool each_key(std::string_view prefix, const Visit &visit);
    std::string get(std::string_view key);
    void put(std::string_view key);
    bool store(std::string_view tips);
    bool add_history(Repository *repository, const git_oid &tip);
    bool add_commit(Revdb *db, Commit &commit);
    void add_side(Repository *repository, const DiffFile *file);
    void add_table(Repository *repository, const Oid &id, std::string_view path);
    void retry_missing(Repository *repository);
    void add_late(Repository *repository, const Oid &id, std::string_view path);

    std::u16string directory_;
    struct stat status_;
    ldb::Database database_;
    ldb::ReadOptions reading_;
    ldb::WriteOptions writing_;
    ldb::Batch batch_, marks_; // of commits, which count when all before them do
    uint64_t held_ = 0;
};

} // namespace zev::rest
