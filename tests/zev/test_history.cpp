// Who changed what in a drawing and when: the search for the version that changed an object,
// fields, manifests, and the verbs that show them.
#include "dxf/fields.hpp"
#include "dxf/history.hpp"
#include "support.hpp"
#include "zev_program.hpp"

#include <map>
#include <random>

namespace {

namespace fs = std::filesystem;

void put(std::string &out, uint64_t number, int bytes) {
    for (int shift = bytes * 8 - 8; shift >= 0; shift -= 8)
        out += static_cast<char>(number >> shift);
}

using Keys = std::vector<DrawingKey>;

std::string key_bytes(const Keys &keys) {
    std::string out;
    for (const DrawingKey &key : keys) put(out, key.tag, 8), put(out, key.object, 8);
    return out;
}

// ---- Versions of a list of keys

// Changes of every kind and size, so that places shift, and now and then another order.
Keys edited(Keys keys, uint64_t tag, std::mt19937 &random) {
    const auto below = [&](size_t limit) {
        return std::uniform_int_distribution<size_t>(0, limit)(random);
    };
    for (size_t n = below(3); n && !keys.empty(); --n) keys[below(keys.size() - 1)].tag = tag;
    const size_t gone = below(3) ? below(2) : below(600);
    const size_t from = below(keys.size()), to = std::min(keys.size(), from + gone);
    keys.erase(keys.begin() + static_cast<ptrdiff_t>(from),
               keys.begin() + static_cast<ptrdiff_t>(to));
    const size_t come = below(3) ? below(2) : below(600), place = below(keys.size());
    for (size_t n = 0; n < come; ++n)
        keys.insert(keys.begin() + static_cast<ptrdiff_t>(place), {tag, tag * 1000 + n});
    if (!below(9)) std::shuffle(keys.begin(), keys.end(), random);
    return keys;
}

TEST(Settler, FindsTheVersionThatAWholeSearchFinds) {
    std::mt19937 random(11);
    for (int round = 0; round < 8; ++round) {
        std::vector<Keys> versions(1); // oldest first
        for (uint64_t n = 0; n < 1500; ++n) versions[0].push_back({1, n + 1000000});
        for (uint64_t tag = 2; tag < 15; ++tag)
            versions.push_back(edited(versions.back(), tag, random));
        std::reverse(versions.begin(), versions.end());
        std::vector<std::string> bytes;
        for (const Keys &keys : versions) bytes.push_back(key_bytes(keys));
        dxf::Settler settler{dxf::KeyList(bytes[0])};
        for (size_t i = 0; i < versions.size() && !settler.done(); ++i)
            settler.compare(i + 1 < bytes.size() ? dxf::KeyList(bytes[i + 1]) : dxf::KeyList(),
                            static_cast<uint32_t>(i));
        ASSERT_TRUE(settler.done());
        for (size_t i = 0; i < versions[0].size(); ++i) {
            const auto has = [&](const Keys &keys) {
                return std::any_of(keys.begin(), keys.end(), [&](const DrawingKey &key) {
                    return zDrawingKeyEqual(&key, &versions[0][i]);
                });
            };
            size_t version = 0;
            while (version + 1 < versions.size() && has(versions[version + 1])) ++version;
            ASSERT_EQ(settler.versions()[i], version) << "round " << round << " object " << i;
        }
    }
}

TEST(CompareObjects, PutsEachObjectInItsPlace) {
    const std::string from = key_bytes({{1, 5}, {1, 7}, {1, 9}, {1, 2}, {1, 1}});
    const std::string to = key_bytes({{2, 9}, {1, 2}, {3, 8}, {2, 5}, {3, 6}});
    std::string text;
    for (const auto &change : dxf::compare_objects(dxf::KeyList(from), dxf::KeyList(to)))
        text += std::string(1, "+~-"[change.kind]) + std::to_string(change.number) + ":" +
                std::to_string(change.from.tag) + ">" + std::to_string(change.to.tag) + " ";
    EXPECT_EQ(text, "+8:0>3 +6:0>3 ~9:1>2 ~5:1>2 -1:1>0 -7:1>0 ");
}

// ---- Fields

TEST(Fields, AsFewAsPossibleDiffer) {
    constexpr struct {
        const char *from, *to, *changes, *why;
    } cases[] = {
        {"0\nLINE\n8\nA\n10\n1\n", "0\nLINE\n8\nB\n10\n1\n", "8:A>B ", "one value"},
        {"  0\r\nLINE\r\n8\nA\n", "0\nLINE\n 8\nA", "", "lines are spelled in other ways"},
        {"0\nP\n10\n1\n20\n1\n10\n2\n20\n2\n", "0\nP\n10\n1\n20\n1\n10\n9\n20\n9\n10\n2\n20\n2\n",
         "10:>9 20:>9 ", "a point between others"},
        {"0\nP\n10\n1\n20\n1\n10\n2\n20\n2\n10\n3\n20\n3\n", "0\nP\n10\n1\n20\n1\n10\n3\n20\n4\n",
         "10:2> 20:2> 20:3>4 ", "one is gone, its neighbour moved"},
        {"0\nA\n", "0\nA\n62\n1\n", "62:>1 ", "a group at the end"},
        {"0\nA\n62\n1\nx\n5\n", "0\nA\n62\n1", "", "what is no group ends the record"},
        {"", "0\nA\n5\n1\n", "0:>A 5:>1 ", "nothing before"},
    };
    const auto side = [](const std::optional<std::string_view> &value) {
        return std::string(value.value_or(""));
    };
    for (const auto &test : cases) {
        std::string text;
        for (const dxf::FieldChange &change : dxf::compare_fields(test.from, test.to))
            text +=
                std::to_string(change.code) + ":" + side(change.from) + ">" + side(change.to) + " ";
        EXPECT_EQ(text, test.changes) << test.why;
    }
    // Too many for the best pairing: by their places, in no time.
    std::string from = "0\nP\n", to = "0\nP\n";
    for (int i = 0; i < 5000; ++i) {
        from += "10\n" + std::to_string(i) + "\n";
        to += "10\n" + std::to_string(i + 1) + "\n";
    }
    EXPECT_EQ(dxf::compare_fields(from, to).size(), 5000u);
    EXPECT_EQ(dxf::record_layer("0\nX\n102\n{A\n8\nno\n102\n}\n8\n yes \n"), "yes");
    EXPECT_EQ(dxf::record_layer("0\nX\n1001\nA\n8\nno\n"), "");
}

// ---- The verbs

struct HistoryVerbs : CopyTest {
    std::string plan = test_data("plan.dxf");

    void SetUp() override {
        setenv("TZ", "UTC", 1);
        CopyTest::SetUp();
    }
    void replace(const std::string &what, const std::string &by) {
        ASSERT_NE(plan.find(what), std::string::npos) << what;
        plan.replace(plan.find(what), what.size(), by);
    }
    void keep(const std::string &drawing, const std::string &message, const std::string &author) {
        draw(plan, drawing);
        ok("add " + drawing);
        ok("commit -m '" + message + "' --author " + author);
    }
    // One member of each record of a type, behind each other.
    std::string all(const std::string &arguments, const std::string &type, const char16_t *path) {
        std::string out;
        for (const std::string &line : lines(ok("--json " + arguments)))
            if (field(line, u"type") == type) out += lines(field(line, path) + "\n")[0] + " ";
        return out;
    }
    std::string subjects(const std::string &arguments) {
        return all("log " + arguments, "commit", u"message");
    }
};

// LevelDB writes whenever it opens a table; who looks opens another one.
TEST_F(HistoryVerbs, LooksAtRowsWriteNothing) {
    keep("plan.dwx", "first", "Ann");
    replace("12.5", "13.5");
    keep("plan.dwx", "second", "Ann");
    const auto all = [&] { return sh("find . -printf '%P %m %s %T@ %i\\n' | sort"); };
    const std::string before = all();
    for (const char *look : {"diff plan.dwx HEAD~1 HEAD", "diff plan.dwx HEAD~1", "blame plan.dwx",
                             "export plan.dwx -", "log --object 32 plan.dwx", "verify"}) {
        ok(look);
        EXPECT_EQ(all(), before) << look;
    }
    EXPECT_NE(ok("export plan.dwx - --rev HEAD~1").find("12.5"), std::string::npos);
    setenv("TMPDIR", (home + "/none").c_str(), 1); // no place for links
    EXPECT_NE(ok("diff plan.dwx HEAD~1 HEAD").find("12.5 -> 13.5"), std::string::npos);
    unsetenv("TMPDIR");
}

// Be its bytes whole, cut or changed: the library's own reader of files says what is a drawing.
TEST_F(HistoryVerbs, AManifestInPlaceIsThatOfTheFile) {
    draw(plan);
    const std::string whole = content("plan.dwx");
    const std::u16string file = dir / u"a.dwx";
    const auto compare = [&](const std::string &bytes, const std::string &what) {
        test::write(fs::path(file), bytes);
        Manifest ours{};
        const bool is_read = zManifestRead(&ours, bytes.data(), bytes.size());
        const auto theirs = test::guard(zDrawingRead(file.c_str()), zDrawingFree);
        const auto deinit = test::guard(&ours, zManifestDeinit);
        ASSERT_EQ(is_read, theirs != nullptr) << what;
        if (!is_read) return;
        ASSERT_TRUE(zOidIsEqual(&ours.table, zDrawingTableId(theirs.get()))) << what;
        EXPECT_TRUE(zDrawingKeyEqual(&ours.header, zDrawingHeader(theirs.get()))) << what;
        EXPECT_TRUE(zDrawingKeyEqual(&ours.vba, zDrawingVbaProject(theirs.get()))) << what;
        EXPECT_EQ(ours.reference_size, zStreamSize(zDrawingReference(theirs.get(), 0, 0))) << what;
        ASSERT_EQ(ours.class_count, zDrawingClassCount(theirs.get())) << what;
        const auto view = dxf::Manifest::read(bytes);
        const dxf::KeyList &list = view->objects;
        ASSERT_EQ(list.size(), zDrawingObjectCount(theirs.get())) << what;
        for (size_t i = 0; i < list.size(); ++i) {
            const DrawingKey key = dxf::turned(list[i]);
            EXPECT_TRUE(zDrawingKeyEqual(&key, zDrawingObjectGetAt(theirs.get(), i))) << what;
        }
    };
    ASSERT_TRUE(dxf::Manifest::read(whole));
    for (size_t at = 0; at < whole.size(); ++at) {
        compare(whole.substr(0, at), "cut at " + std::to_string(at));
        for (const char byte : {'\0', '\x7f', '\xff'}) {
            std::string bytes = whole;
            bytes[at] = byte;
            compare(bytes, std::to_string(byte) + " at " + std::to_string(at));
        }
    }
}

TEST_F(HistoryVerbs, EachObjectHasTheCommitThatChangedIt) {
    keep("plan.dwx", "one", "Ada");
    replace("12.5", "13.5"); // the circle 32
    keep("plan.dwx", "two", "Bob");
    play("mkdir docs; mv plan.dwx docs/ground.dwx");
    replace("Kitchen", "Bath"); // moved and changed in one commit
    keep("docs/ground.dwx", "three", "Ann");
    const auto blamed = [&](const std::string &handle) {
        for (const std::string &line : lines(ok("blame docs/ground.dwx --json")))
            if (field(line, u"handle") == handle)
                return field(line, u"author") + " " + field(line, u"kind") + " " +
                       field(line, u"layer");
        return std::string("nobody");
    };
    EXPECT_EQ(blamed("32"), "Bob CIRCLE DOORS");
    EXPECT_EQ(blamed("33"), "Ann TEXT WALLS");
    EXPECT_EQ(blamed("30"), "Ada LINE WALLS");
    EXPECT_EQ(blamed("#0"), "nobody"); // an end mark is no object
    EXPECT_EQ(all("blame plan.dwx --rev HEAD~1", "blame", u"author").find("Ann"),
              std::string::npos);

    // The circle goes, with what was in between, and comes back as it was.
    const size_t circle = plan.find("  0\nCIRCLE"), end = plan.find("  0\nTEXT");
    ASSERT_LT(circle, end);
    const std::string record = plan.substr(circle, end - circle);
    replace(record, "");
    keep("docs/ground.dwx", "four", "Eve");
    plan.insert(circle, record);
    keep("docs/ground.dwx", "five", "Eve");
    const std::string events = "log docs/ground.dwx --object 32 ";
    EXPECT_EQ(all(events, "event", u"message"), "five four two one ");
    EXPECT_EQ(all(events, "event", u"change"), "added removed modified added ");
    EXPECT_EQ(all(events + "--author bob", "event", u"path"), "plan.dwx ");
    EXPECT_EQ(all("log HEAD~1 docs/ground.dwx --object 32 -n 1", "event", u"message"), "four ");

    // What a merge brought is his who made it.
    ok("switch -c side");
    replace("  8\nDOORS", "  8\nGATES");
    keep("docs/ground.dwx", "six", "Ben");
    ok("switch master");
    write("x", "x");
    play("add x; commit -m seven; merge side");
    EXPECT_NE(all("blame docs/ground.dwx", "blame", u"author").find("Ben"), std::string::npos);
    EXPECT_EQ(subjects("docs/ground.dwx -n 1"), "Merge side ");

    // Without its table it is known all the same who did it.
    fs::remove_all(root + "/.git/tables");
    const auto text = lines(ok("blame docs/ground.dwx"));
    ASSERT_EQ(text.size(), 16u); // a warning and 15 objects
    EXPECT_NE(text.back().find("Ada"), std::string::npos) << text.back();
    for (const auto &[arguments, code] :
         std::vector<std::pair<std::string, int>>{{"log --object 99 docs/ground.dwx", 3},
                                                  {"log --object xyz docs/ground.dwx", 2},
                                                  {"log --object 32", 2},
                                                  {"blame nothing.dwx", 3},
                                                  {"blame docs", 2},
                                                  {"blame docs/ground.dwx --rev HEAD~9", 3}})
        EXPECT_EQ(this->code(arguments), code) << arguments;
}

// A merge whose drawing is neither side's: each object is followed along the side that has it.
TEST_F(HistoryVerbs, WhatBothSidesBroughtIsTheirs) {
    keep("plan.dwx", "one", "Ada");
    ok("switch -c side");
    replace("Kitchen", "Bath"); // the text 33
    keep("plan.dwx", "two", "Ben");
    ok("switch master");
    replace("Bath", "Kitchen");
    replace("  8\nDOORS", "  8\nGATES"); // the circle 32
    keep("plan.dwx", "three", "Bob");
    EXPECT_EQ(code("merge side --no-merge-drawings"), 4);
    ok("resolve --theirs plan.dwx");
    replace("Kitchen", "Bath");
    replace("12.5", "14.5");
    draw(plan);
    ok("commit --all -m together --author Eve");
    ASSERT_EQ(lines(git("rev-list --parents -1 HEAD"))[0].size(), 3 * 41 - 1u);
    std::map<std::string, std::string> authors;
    for (const std::string &line : lines(ok("blame plan.dwx --json")))
        authors[field(line, u"handle")] = field(line, u"author");
    EXPECT_EQ(authors["33"] + authors["32"] + authors["30"], "BenEveAda");
}

TEST_F(HistoryVerbs, FieldsAndTotals) {
    keep("plan.dwx", "one", "Ada");
    replace("12.5", "13.5");
    replace("  8\nDOORS", "  8\n\033[2JX");
    replace("  0\nDICTIONARY\n  5\nD\n330\nC\n", "");
    draw(plan);
    EXPECT_EQ(lines(ok("diff plan.dwx --color always | sed 's/\033\\[[0-9]*m//g'")),
              (std::vector<std::string>{
                  "modified  32        CIRCLE", "       8 layer         DOORS ->  [2JX",
                  "      40 radius        12.5 -> 13.5", "removed   D         DICTIONARY",
                  "modified  the layout", "0 added, 1 modified, 1 removed"}));
    EXPECT_NE(ok("diff plan.dwx --full").find("     330 owner         C\n"), std::string::npos);
    EXPECT_EQ(all("diff plan.dwx --stat", "total", u"name"), "CIRCLE DICTIONARY  \\u001b[2JX ");
    EXPECT_EQ(all("diff", "drawing", u"modified") + all("diff", "drawing", u"removed"), "1 1 ");
    ok("commit -m two plan.dwx");
    EXPECT_EQ(all("show HEAD --stat", "drawing", u"modified"), "1 ");
    EXPECT_EQ(ok("diff"), "0 added, 0 modified, 0 removed\n");
}

TEST_F(HistoryVerbs, LogTakesFiltersAndFollowsRenames) {
    sh("c() { git add -A && GIT_COMMITTER_DATE=\"$3 +0000\" git -c user.name=\"$2\" "
       "-c user.email=x@y commit -qm \"$1\"; };"
       "mkdir d e; echo 1 >a; echo 2 >d/x; echo 3 >e/y; c one Ann 2024-03-01T10:00:00;"
       "git mv a b; c two Annie 2024-03-02T10:00:00;"
       "echo 4 >a; c three 'Bob B' 2024-03-02T23:30:00;"
       "git mv d f; echo 5 >>b; c four Bob 2024-03-03T00:00:00;"
       "git mv e/y f/y; c 'fix the Door' Ann 2024-03-04T10:00:00;"
       "git rm -q a; echo 6 >f/x; c six Bob 2024-03-05T10:00:00; echo n >master");
    const struct {
        const char *arguments, *subjects, *why;
    } cases[] = {
        {"", "six fix the Door four three two one ", "all"},
        {"HEAD~3", "three two one ", "from a commit on"},
        {"--author 'ann*' --not-author ann", "two ", "wild, less one"},
        {"--text T?O --text door", "fix the Door two ", "wild"},
        {"--since 2024-03-03", "six fix the Door four ", "from midnight on"},
        {"--until 2024-03-02", "three two one ", "through the whole day"},
        {"--since '2024-03-02T23:30:00' --until '2024-03-03 01:00+01:00'", "four three ",
         "both ends belong to it"},
        {"--until '2 weeks ago' -n 1", "six ", "back from now"},
        {"b", "four two one ", "the file's former name, not what has that name later"},
        {"-- a", "six three two one ", "a path that is gone"},
        {"f", "six fix the Door four one ", "a directory that was moved, a file that came"},
        {"f/y --changes", "fix the Door one ", "one file"},
        {"b --author ann", "one ", "others' renames count"},
        {"-- master", "", "a path that looks like a branch"},
        {"master -- b", "four two one ", "a branch that looks like a path"},
    };
    for (const auto &test : cases)
        EXPECT_EQ(subjects(test.arguments), test.subjects) << test.arguments << ": " << test.why;
    EXPECT_EQ(all("log f/y --changes", "change", u"path"), "f/y e/y ");
    for (const auto &[arguments, code] :
         std::vector<std::pair<std::string, int>>{{"log master", 2},
                                                  {"log a", 3},
                                                  {"log b HEAD", 2},
                                                  {"log nothing -- b", 3},
                                                  {"log --since 2024-02-30", 2},
                                                  {"log --until '3 moons ago'", 2},
                                                  {"log -- ../x", 2}})
        EXPECT_EQ(this->code(arguments), code) << arguments;
}

} // namespace
