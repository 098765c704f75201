// Fixture of the rules of a merge: drawings of a few records, on three sides.
#pragma once

#include "merge_versions.hpp"
#include "support.hpp"

namespace merge_test {

using dxf::Side;

inline std::string record(const std::string &type, const std::string &handle,
                          const std::string &groups) {
    const char *code = type == "DIMSTYLE" ? "105" : "5";
    return "0\n" + type + "\n" + (handle.empty() ? "" : std::string(code) + "\n" + handle + "\n") +
           groups;
}
inline std::string line(const std::string &handle, const std::string &x,
                        const std::string &layer = "0") {
    return record("LINE", handle, "8\n" + layer + "\n10\n" + x + "\n");
}
inline std::string layer(const std::string &handle, const std::string &name,
                         const char *colour = "7") {
    return record("LAYER", handle, "2\n" + name + "\n62\n" + colour + "\n");
}

struct Sections {
    std::string header = "9\n$HANDSEED\n5\n100\n", layers = layer("10", "0"), blocks,
                entities = line("20", "1") + line("21", "1") + line("22", "1"), rest;
    std::string count = "1";

    std::string text() const {
        const auto section = [](const char *name, const std::string &content) {
            return "0\nSECTION\n2\n" + std::string(name) + "\n" + content + "0\nENDSEC\n";
        };
        return section("HEADER", header) +
               section("TABLES", record("TABLE", "2", "2\nLAYER\n70\n" + count + "\n") + layers +
                                     "0\nENDTAB\n") +
               section("BLOCKS", blocks) + section("ENTITIES", entities) + rest + "0\nEOF\n";
    }
};

struct MergeRules : testing::Test {
    Store store;
    Sections base, ours, theirs;
    std::map<uint64_t, Side> decided;
    std::optional<Side> others;

    dxf::Merge merge() {
        const dxf::Keys b = store.add(base.text(), nullptr), o = store.add(ours.text(), &b),
                        t = store.add(theirs.text(), &b);
        return store.merge(b, o, t, decided, others);
    }
    // The text of the result; the reasons of conflicts if there are any.
    std::string result() {
        dxf::Merge merged = merge();
        std::string out;
        for (const auto &conflict : merged.conflicts) out += conflict.reason + "\n";
        const bool is_merged = out.empty();
        EXPECT_TRUE(!is_merged || store.text(store.keep(merged), out));
        return out;
    }
    void start(const Sections &drawing) { base = ours = theirs = drawing; }
};

} // namespace merge_test
