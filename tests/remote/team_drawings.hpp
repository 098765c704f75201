// Drawings in the copies of a team.
#pragma once

#include "team_fixture.hpp"

#include "objects/drawing/drawing.hpp"

namespace test {

using Objects = std::vector<std::pair<uint64_t, std::string>>; // number and row

// The bytes of a manifest, and its rows in a table of the copy: the named one, at its next step, or
// a new one where the id is zero.
inline std::string draw(const Copy &copy, Oid &id, const Objects &objects) {
    const RepositoryPtr repository = copy.open();
    const bool is_new = zOidIsZero(&id);
    const zev::TablePtr table(is_new ? zTableRand(repository.get())
                                     : zTableByid(repository.get(), &id));
    id = *zTableId(table.get());
    if (!is_new) zTableTagIncrement(table.get());
    const zev::DrawingPtr drawing(zDrawingNew(nullptr, nullptr));
    zDrawingTableIdSet(drawing.get(), &id);
    const auto put_row = [&](const DrawingKey *key, const std::string &bytes) {
        EXPECT_OK(zDrawingKeyPutData(table.get(), key, bytes.data(), bytes.size()));
    };
    put_row(zDrawingHeaderSet(drawing.get(), table.get()), "header");
    for (const auto &[number, bytes] : objects)
        put_row(zDrawingObjectAdd(drawing.get(), table.get(), number), bytes);
    const TempDir dir;
    EXPECT_OK(zDrawingWrite(drawing.get(), (dir / u"drawing").c_str()));
    return read(dir.path() / "drawing");
}

} // namespace test
