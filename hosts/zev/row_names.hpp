// Row names: which rows of which tables some state of a drawing names, be it committed, staged, in
// the trash or at work.
#pragma once

#include "copy.hpp"
#include "host_notify.hpp"
#include "ids.hpp"

#include <optional>

namespace host {

class RowNames {
  public:
    // Looks through the store, the files of every work directory and those of the Git directory.
    RowNames(const WorkingCopy &copy, const Notify *notify);

    // Why not all that may name rows could be looked at; then the names are no grounds to drop any.
    const std::optional<std::string> &unseen() const { return unseen_; }
    bool names_table(const Oid &table) const { return tables_.contains(table); }
    bool has(const Oid &table, const DrawingKey &key) const;

  private:
    // Keys in order up to `sorted`, each once; then as they came.
    struct Keys {
        std::vector<DrawingKey> all;
        size_t sorted = 0;
        void sort();
    };

    void read_store();
    void read_directory(const std::filesystem::path &directory, bool is_git);
    void read_file(const std::filesystem::path &file);
    void read_worktrees(const std::filesystem::path &git);
    void add(std::string_view bytes, const std::string &where);
    void miss(const std::string &why);

    Repository *repository_;
    const Notify *notify_;
    IdMap<Keys> tables_;
    std::optional<std::string> unseen_;
};

} // namespace host
