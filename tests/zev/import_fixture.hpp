// What tests of the import share: a working copy, a drawing in it, and files made of lines.
#pragma once

#include "dxf/drawing.hpp"
#include "dxf/layout.hpp"
#include "dxf/reader.hpp"
#include "dxf/rows.hpp"
#include "support.hpp"

#include <filesystem>
#include <map>

namespace fs = std::filesystem;

inline std::string entities(const std::string &records) {
    return "0\nSECTION\n2\nENTITIES\n" + records + "0\nENDSEC\n0\nEOF\n";
}
inline std::string line(const std::string &handle, const std::string &x) {
    return "0\nLINE\n" + (handle.empty() ? "" : "5\n" + handle + "\n") + "10\n" + x + "\n";
}

struct Import : testing::Test {
    test::TempDir dir;
    std::string root = (dir.path() / "copy").string();
    host::OwnedRepository repository{zRepositoryInit((dir / u"copy").c_str(), false)};
    std::u16string drawing = dir / u"copy/a.dwx";

    dxf::Import request_for(const Notify *notify) {
        const std::string name = fs::path(drawing).lexically_relative(root).string();
        return {repository.get(), dir / u"in.dxf", "in.dxf", drawing, name, nullptr, notify};
    }
    dxf::ImportResult import(const std::string &bytes, Drawing *committed = nullptr,
                             dxf::Match match = dxf::Match::automatic) {
        test::write(dir.path() / "in.dxf", bytes);
        dxf::Import request = request_for(zNotifyNull());
        request.committed = committed;
        request.match = match;
        return dxf::import_drawing(request);
    }
    std::string exported(const std::u16string &file, dxf::Form form = dxf::Form::version) {
        host::OwnedDrawing read(zDrawingRead(file.c_str()));
        std::string out;
        dxf::export_drawing(
            repository.get(), read.get(), "a", zNotifyNull(),
            [&](std::string_view bytes) { out += bytes; }, form);
        return out;
    }
    // Tags by object number.
    std::map<uint64_t, uint64_t> keys() {
        host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        std::map<uint64_t, uint64_t> out;
        for (uint64_t i = 0; i < zDrawingObjectCount(read.get()); ++i) {
            DrawingKey key = *zDrawingObjectGetAt(read.get(), i);
            EXPECT_TRUE(out.emplace(key.object, key.tag).second) << key.object;
        }
        out[static_cast<uint64_t>(-3)] = zDrawingDS(read.get())->tag;
        return out;
    }
    host::OwnedTable table() {
        host::OwnedDrawing read(zDrawingRead(drawing.c_str()));
        return dxf::open_table(repository.get(), zDrawingTableId(read.get()), "a");
    }
    bool has_tables() {
        const fs::path path = root + "/.git/tables";
        return fs::exists(path) && !fs::is_empty(path);
    }
};
