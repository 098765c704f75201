// A table that can't be written, on a read-only file system or in an archive, can't be opened by
// LevelDB, which writes with each opening. It is read through a shadow.
#pragma once

#include <string>

namespace zev {

// A directory in the place for temporary files, gone with this record: files of rows are links to
// those of the table, what LevelDB writes to is copied.
class TableShadow {
  public:
    TableShadow() = default;
    ~TableShadow();
    TableShadow(const TableShadow &) = delete;
    TableShadow &operator=(const TableShadow &) = delete;

    bool make(const std::u16string &table); // false: errno says why; may throw
    bool is_made() const { return !path_.empty(); }
    const std::u16string &path() const { return path_; }

  private:
    std::u16string path_;
};

} // namespace zev
