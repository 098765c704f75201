// Drawings with their rows in a table of a working copy.
#pragma once

#include "remote_fixture.hpp"

#include <filesystem>

namespace test {

struct Sheet {
    Oid table;
    std::string bytes; // of the manifest
};

inline VectorPtr vector_of(const std::vector<DrawingKey> &keys) {
    VectorPtr vector = zev::new_keys(keys.size());
    for (const DrawingKey &key : keys) zVectorPush(vector.get(), &key);
    return vector;
}

// Writes a manifest of a header and objects, stamped with the table's present tag; the rows of both
// go into the table, which notes the file's name. An object without a text keeps its key of `from`.
inline Sheet draw(Table *table, const std::string &file,
                  const std::vector<std::pair<uint64_t, std::string>> &objects) {
    const DrawingPtr drawing(zDrawingNew(nullptr, nullptr));
    zDrawingTableIdSet(drawing.get(), zTableId(table));
    put(table, *zDrawingHeaderSet(drawing.get(), table), "header");
    for (const auto &[number, text] : objects)
        put(table, *zDrawingObjectAdd(drawing.get(), table, number), text);
    zDrawingTableBackwardRefSet(table, nullptr,
                                std::filesystem::path(file).filename().u16string().c_str());
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    EXPECT_OK(zDrawingWrite(drawing.get(), wide(file).c_str()));
    return {*zTableId(table), read(file)};
}

// All rows of a table as they travel.
inline std::string read_rows(Table *table) {
    const StreamPtr stream(zTableWriteOut(table));
    return rest_of(stream.get());
}

// How many rows a project's table has, and one of them.
inline TablePtr served(const Service &service, const Oid &id) {
    const std::string text = text_of(&id);
    return TablePtr(zTableOpen(
        wide(service.at("ann/plant") + "/tables/" + text.substr(0, 2) + "/" + text.substr(2))
            .c_str(),
        false));
}
inline size_t count_rows(Table *table) {
    size_t count = 0;
    const zev::Owned<TableIter, zTableIterFree> iter(zTableIterNew(table));
    for (zTableIterSeekToFirst(iter.get()); !zTableIterDone(iter.get()); zTableIterNext(iter.get()))
        ++count;
    return count;
}

} // namespace test
