// Merge: laws that hold for any two edits of a sheet. By hand ZEV_MERGE_PAIRS says how many pairs,
// 20,000 of them in a minute or two; ZEV_MERGE_DUMP names a directory for the texts of the last
// one.
#include "dxf/drawing.hpp"
#include "dxf/merge.hpp"
#include "dxf/merge/compose.hpp"
#include "dxf/rows.hpp"
#include "merge_edits.hpp"
#include "merge_versions.hpp"
#include "support.hpp"
#include "zev_program.hpp"

#include <set>

namespace {

namespace fs = std::filesystem;
using dxf::merging::same_but_handles;
using merge_test::Random;
using merge_test::Sheet;
using merge_test::Store;

bool is_handle(int code) {
    return code == 5 || code == 105 || (code >= 320 && code <= 369) || code == 1005 ||
           (code >= 390 && code <= 399);
}

// Drawings of tests, and of a library of real ones where that is installed.
std::vector<std::string> sheets() {
    std::vector<std::string> found{test_data("plan.dxf"), test_data("site.dxf")};
    const fs::path library = "/usr/share/librecad";
    if (!fs::exists(library)) return found;
    std::vector<fs::path> files;
    for (const auto &file : fs::recursive_directory_iterator(library))
        if (file.path().extension() == ".dxf" && file.file_size() < 60000)
            files.push_back(file.path());
    std::sort(files.begin(), files.end());
    for (size_t i = 0; i < files.size(); i += files.size() / 12 + 1)
        found.push_back(test::read(files[i]));
    return found;
}

// A sheet of the old kind: nothing in it has a handle or names one.
std::string without_any_handle(const std::string &text) {
    std::string out;
    std::string_view left = text;
    for (dxf::merging::Group group; dxf::take_group(left, group);)
        if (!is_handle(group.code) || out.ends_with("$HANDSEED\n")) out += group.bytes;
    return out + std::string(left);
}

// Blocks, polylines and inserts with attributes, some of them the same but for their handles.
std::string compounds() {
    uint64_t handle = 0x20;
    const auto record = [&handle](const std::string &type, const std::string &groups) {
        return "0\n" + type + "\n5\n" + dxf::handle_text(handle++) + "\n8\n0\n" + groups;
    };
    const auto polyline = [&](int place) {
        std::string out = record("POLYLINE", "66\n1\n");
        for (int i = 0; i < 3; ++i)
            out += record("VERTEX", "10\n" + std::to_string(i + place) + "\n20\n0\n");
        return out + record("SEQEND", "");
    };
    std::string text = "0\nSECTION\n2\nHEADER\n9\n$HANDSEED\n5\n200\n9\n$TDUPDATE\n40\n1.5\n"
                       "0\nENDSEC\n0\nSECTION\n2\nTABLES\n0\nTABLE\n2\nLAYER\n70\n2\n"
                       "0\nLAYER\n5\n10\n2\n0\n62\n7\n0\nLAYER\n5\n11\n2\nWALLS\n62\n1\n"
                       "0\nENDTAB\n0\nENDSEC\n0\nSECTION\n2\nBLOCKS\n";
    for (const char *name : {"DOOR", "TREE"})
        text += record("BLOCK", "2\n" + std::string(name) + "\n") +
                record("LINE", "10\n1\n20\n1\n") + polyline(0) + record("ENDBLK", "");
    text += "0\nENDSEC\n0\nSECTION\n2\nENTITIES\n";
    for (int i = 0; i < 6; ++i) {
        text += polyline(i / 3);
        text += record("INSERT", "66\n1\n2\nDOOR\n10\n" + std::to_string(i) + "\n") +
                record("ATTRIB", "1\nA\n2\nT\n10\n0\n") + record("SEQEND", "") +
                record("LINE", "10\n5\n20\n5\n");
    }
    return text + "0\nENDSEC\n0\nEOF\n";
}

// Two edits of one sheet by one seed each.
struct Pair {
    Store store;
    dxf::Keys base, a, b;

    Pair(const std::string &sheet, uint64_t seed)
        : base(store.add(sheet, nullptr)), a(edited(sheet, 2 * seed)),
          b(edited(sheet, 2 * seed + 1)) {}

    dxf::Keys edited(const std::string &sheet, uint64_t seed) {
        Random random(seed);
        Sheet edit(sheet);
        for (uint64_t n = 1 + random.below(6); n; --n) edit.edit(random);
        return store.add(edit.text(), &base);
    }
    std::string text(const dxf::Keys &keys) const {
        std::string out;
        EXPECT_TRUE(store.text(keys, out));
        return out;
    }
    std::map<uint64_t, std::string> objects(const dxf::Keys &keys) const {
        std::map<uint64_t, std::string> out;
        for (const DrawingKey &key : keys.objects)
            EXPECT_TRUE(out.emplace(key.object, store.row(key)).second) << key.object;
        return out;
    }
};

bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}
bool same_keys(const dxf::Keys &a, const dxf::Merge &b) {
    return same_key(a.header, b.header) && same_key(a.summary, b.summary) &&
           same_key(a.layout, b.layout) && std::ranges::equal(a.classes, b.classes, same_key) &&
           std::ranges::equal(a.objects, b.objects, same_key);
}

// Objects, or all parts, as a multiset, without their handles.
std::multiset<std::string> without_handles(const std::string &text, bool all = false) {
    std::multiset<std::string> out;
    for (const dxf::Part &part : dxf::split(text, "text").parts) {
        if (!all && part.kind != dxf::Kind::object) continue;
        std::vector<std::string> groups;
        std::string_view left = part.bytes;
        for (dxf::merging::Group group; dxf::take_group(left, group);) {
            groups.push_back(is_handle(group.code) ? std::to_string(group.code) + "\n"
                                                   : std::string(group.bytes));
        }
        if (part.type == "DICTIONARY") std::ranges::sort(groups); // the sides' own come first
        std::string record;
        for (const std::string &group : groups) record += group;
        out.insert(record);
    }
    return out;
}

bool has_handle_twice(const std::string &text) {
    std::set<uint64_t> seen;
    for (const dxf::Part &part : dxf::split(text, "text").parts)
        if (part.handle && !seen.insert(part.handle).second) return true;
    return false;
}

bool is_composed(std::string_view record) {
    return record.find("DICTIONARY") != record.npos || record.find("{ACAD_REACTORS") != record.npos;
}

// Names of a dictionary's entries, or how often a list names another object back.
std::multiset<std::string> named_in(std::string_view record) {
    std::multiset<std::string> out;
    bool is_in_list = false;
    for (dxf::merging::Group group; dxf::take_group(record, group);) {
        if (group.code == 102) is_in_list = group.value == "{ACAD_REACTORS";
        if (group.code == 3 || is_in_list) out.insert(std::string(group.value));
    }
    return out;
}

// What both changed has what either put in, and nothing that either took out.
void is_put_together(std::string_view was, std::string_view mine, std::string_view others,
                     std::string_view is) {
    EXPECT_TRUE(is_composed(is)) << is;
    const auto base = named_in(was), a = named_in(mine), b = named_in(others), all = named_in(is);
    for (const std::string &name : a)
        EXPECT_EQ(all.contains(name), b.contains(name) || !base.contains(name)) << name << is;
    if (dxf::record_type(is) != "DICTIONARY") return; // theirs' may have new handles
    for (const std::string &name : b)
        EXPECT_EQ(all.contains(name), a.contains(name) || !base.contains(name)) << name << is;
}

// Each note is in the dictionary of which it is, and nothing is named there that isn't.
void has_no_orphans(const std::string &text) {
    std::set<uint64_t> notes, named;
    for (const dxf::Part &part : dxf::split(text, "text").parts) {
        if (part.bytes.find("AcDbXrecord\n  1\nNOTE ") != part.bytes.npos)
            notes.insert(part.handle);
        if (part.type == "DICTIONARY")
            dxf::merging::visit_entries(part.bytes, [&](uint64_t handle) { named.insert(handle); });
    }
    for (const uint64_t note : notes) EXPECT_TRUE(named.contains(note)) << std::hex << note;
}

// A text without lists of those that name a record back.
std::string without_lists(const std::string &text) {
    std::string out;
    bool is_in_list = false;
    std::string_view left = text;
    for (dxf::merging::Group group; dxf::take_group(left, group);) {
        const bool was_in_list = is_in_list;
        if (group.code == 102) is_in_list = group.value == "{ACAD_REACTORS";
        if (!was_in_list && !is_in_list) out += group.bytes;
    }
    return out;
}

// Each record that there is once, but for its handles, is there if it was, but for what either side
// did about it. What is put together of both is looked at by itself.
void adds_up(const Pair &pair, const std::string &result) {
    const auto records_of = [](const std::string &text) {
        return without_handles(without_lists(text));
    };
    const auto base = records_of(pair.text(pair.base)), a = records_of(pair.text(pair.a)),
               b = records_of(pair.text(pair.b)), merged = records_of(result);
    std::set<std::string> all;
    for (const auto *records : {&base, &a, &b, &merged})
        all.insert(records->begin(), records->end());
    for (const std::string &record : all) {
        if (record.find("DICTIONARY") != record.npos) continue;
        const size_t was = base.count(record), mine = a.count(record), others = b.count(record);
        if (std::max({was, mine, others}) > 1) continue;
        const size_t is = merged.count(record), expected = mine == was ? others : mine;
        const bool are_two = is == 2 && !was && mine && others; // made the same of two
        EXPECT_TRUE(is == expected || are_two) << record;
    }
}

// Polylines, inserts with attributes and blocks have their ends, and nothing else within.
void is_well_formed(const std::string &text) {
    std::string_view open;
    bool is_in_block = false;
    for (const dxf::Part &part : dxf::split(text, "text").parts) {
        if (part.kind != dxf::Kind::object) continue;
        const bool is_member =
            part.type == "VERTEX" || part.type == "ATTRIB" || part.type == "SEQEND";
        EXPECT_EQ(!open.empty(), is_member) << part.bytes;
        if (part.type == "SEQEND") open = {};
        if (part.type == "POLYLINE" || part.bytes.find("\n66\n1\n") != part.bytes.npos)
            open = part.type;
        if (part.type != "BLOCK" && part.type != "ENDBLK") continue;
        EXPECT_EQ(std::exchange(is_in_block, part.type == "BLOCK"), part.type == "ENDBLK");
    }
    EXPECT_FALSE(is_in_block);
}

// What only one side changed is in the result, under its number or, of theirs, under a new one.
void holds_both(const Pair &pair, const dxf::Keys &result, uint64_t renumbered) {
    const auto base = pair.objects(pair.base), a = pair.objects(pair.a), b = pair.objects(pair.b),
               merged = pair.objects(result);
    const auto at = [](const auto &objects, uint64_t number) {
        const auto found = objects.find(number);
        return found == objects.end() ? std::string() : found->second;
    };
    std::set<uint64_t> numbers;
    for (const auto *objects : {&base, &a, &b})
        for (const auto &[number, row] : *objects) numbers.insert(number);
    uint64_t apart = 0;
    for (const uint64_t number : numbers) {
        if (number >= dxf::kFirstNumber) continue;
        const std::string was = at(base, number), mine = at(a, number), others = at(b, number),
                          is = at(merged, number);
        if (mine == others || was == others) {
            EXPECT_EQ(is, mine) << std::hex << number;
        } else if (was == mine) {
            const auto is_it = [&](const auto &object) {
                return same_but_handles(object.second, others);
            };
            const bool is_united = is.empty() && dxf::record_type(others) == "LAYER" &&
                                   std::ranges::any_of(merged, is_it);
            EXPECT_TRUE(is == others || is_united || (renumbered && is_it(std::pair(0, is))))
                << std::hex << number;
        } else if (was.empty()) {
            EXPECT_EQ(is, mine) << std::hex << number;
            apart += dxf::record_type(others) != "LAYER"; // which may have been united
        } else if (dxf::record_type(is) != "TABLE") {
            is_put_together(was, mine, others, is);
        }
    }
    EXPECT_GE(renumbered, apart ? 1u : 0u);
}

void check_laws(const std::string &sheet, uint64_t seed, std::map<std::string, int> &seen) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Pair pair(sheet, seed);
    const char *dump = getenv("ZEV_MERGE_DUMP"); // a directory, for the audit of merges.py
    const fs::path place = dump ? fs::path(dump) / std::to_string(seed) : fs::path();
    if (dump) {
        fs::create_directories(place);
        test::write(place / "base.dxf", pair.text(pair.base));
        test::write(place / "a.dxf", pair.text(pair.a));
        test::write(place / "b.dxf", pair.text(pair.b));
    }
    Store &store = pair.store;
    EXPECT_TRUE(same_keys(pair.a, store.merge(pair.base, pair.a, pair.base)));
    EXPECT_TRUE(same_keys(pair.a, store.merge(pair.base, pair.base, pair.a)));
    EXPECT_TRUE(same_keys(pair.a, store.merge(pair.base, pair.a, pair.a)));
    const dxf::Merge merge = store.merge(pair.base, pair.a, pair.b);
    const dxf::Merge turned = store.merge(pair.base, pair.b, pair.a);
    EXPECT_EQ(merge.conflicts.empty(), turned.conflicts.empty());
    ++seen[merge.conflicts.empty() ? "merged" : "in conflict"];
    if (!merge.conflicts.empty()) {
        for (const auto &conflict : merge.conflicts) ++seen[conflict.reason];
        for (const dxf::Side side : {dxf::Side::ours, dxf::Side::theirs}) {
            const auto decided = store.merge(pair.base, pair.a, pair.b, {}, side);
            EXPECT_TRUE(decided.conflicts.empty()) << decided.conflicts[0].reason;
            if (!decided.conflicts.empty()) continue;
            const std::string text = pair.text(store.keep(decided));
            is_well_formed(text);
            has_no_orphans(text);
        }
        return;
    }
    const dxf::Keys result = store.keep(merge), other_way = store.keep(turned);
    const std::string text = pair.text(result);
    if (dump) test::write(place / "result.dxf", text);
    EXPECT_EQ(without_handles(text, true), without_handles(pair.text(other_way), true));
    holds_both(pair, result, merge.renumbered);
    // Of two records with one handle an import gives it to whichever comes first.
    const bool is_faulty = has_handle_twice(sheet) || has_handle_twice(text);
    if (!is_faulty) adds_up(pair, text);
    is_well_formed(text);
    has_no_orphans(text);
    seen["renumbered"] += merge.renumbered != 0;
    // An import of the text over the result changes nothing, not even the summary.
    const dxf::Keys again = store.add(text, &result);
    EXPECT_EQ(pair.text(again), text);
    if (is_faulty) return;
    EXPECT_EQ(store.row(again.summary), store.row(result.summary));
    const auto sorted = [](std::vector<DrawingKey> keys) {
        std::ranges::sort(keys, dxf::before);
        return keys;
    };
    EXPECT_TRUE(std::ranges::equal(sorted(again.objects), sorted(result.objects), same_key));
}

TEST(MergeLaws, HoldForEditsOfRealSheets) {
    const char *wanted = getenv("ZEV_MERGE_PAIRS");
    const uint64_t count = wanted ? strtoull(wanted, nullptr, 10) : 500;
    std::vector<std::string> drawings = sheets();
    drawings.push_back(compounds());
    for (const std::string &sheet : {test_data("plan.dxf"), compounds()})
        drawings.push_back(without_any_handle(sheet));
    std::map<std::string, int> seen;
    for (uint64_t seed = 0; seed < count && !HasFailure(); ++seed)
        check_laws(drawings[seed % drawings.size()], seed, seen);
    for (const auto &[what, times] : seen) printf("%5d %s\n", times, what.c_str());
    EXPECT_GT(seen["merged"], static_cast<int>(count / 4));
    EXPECT_GT(seen["in conflict"], 0);
    EXPECT_GT(seen["renumbered"], 0);
}

} // namespace
