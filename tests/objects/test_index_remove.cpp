#include "removal_fixture.hpp"

#include <filesystem>
#include <set>

using namespace test;

namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

int refusals = 0;

class IndexRemove : public RemovalTest {
  protected:
    std::string remove(std::vector<std::u16string> patterns, uint32_t options = kLiteral,
                       Host host = Host()) {
        return run(zIndexRemove, patterns, options, host);
    }

    // The next moves are refused, as for a file that another program holds.
    static void refuse(int count) {
        static const auto real = os::calls.rename;
        refusals = count;
        os::calls.rename = [](const char *from, const char *to, unsigned flags) {
            return refusals-- > 0 ? (errno = EACCES, -1) : real(from, to, flags);
        };
    }
};

} // namespace

TEST_F(IndexRemove, PatternsTakeWhatAStatusLists) {
    put("sub/keep.txt", "1");
    commit_all();
    put("[ab].dwx", "never added");
    write(place / "bad\xFF.dwx", "no UTF-8");
    EXPECT_EQ(remove({}) + remove({u"[a].dwx"}, 0), "done;done;"); // no wildcard
    EXPECT_EQ(remove({u"*.dwx"}, 0), "Deleted [ab].dwx;Skipped bad\uFFFD.dwx;done;");
    EXPECT_TRUE(exists("bad\xFF.dwx"));
    write(place / ".git/refs/heads/master", "damaged");
    EXPECT_EQ(remove({u"sub"}, 0), "error;abort;");
    EXPECT_TRUE(exists("sub/keep.txt"));
}

TEST_F(IndexRemove, WhatCannotBeTakenIsAskedFor) {
    const struct {
        std::vector<int32_t> answers;
        size_t break_at;
        std::string told;
        std::vector<std::string> left;
    } rows[] = {
        {{1, 2}, 9, "Skipped a;Deleted b;done;", {"a"}},
        {{2, 3}, 9, "Skipped a;Skipped b;abort;", {"a", "b"}},
        {{}, 9, "Skipped a;Skipped b;done;", {"a", "b"}}, // nobody answers
        {{1, 1}, 2, "Deleted a;cancel;", {"b"}},          // what was done stays done
    };
    for (const auto &row : rows) {
        put_all({"a", "b"});
        add({u"*"});
        refuse(2);
        EXPECT_EQ(remove({u"a", u"b"}, kLiteral, Host(row.answers, row.break_at)), row.told);
        os::calls = kept;
        EXPECT_EQ(tracked(), row.left) << row.told;
        for (const std::string &path : row.left) EXPECT_TRUE(exists(path)) << row.told;
    }
}

TEST_F(IndexRemove, NothingBehindALinkIsTouched) {
    write(dir.path() / "out/a.dwx", "somebody else's");
    put("in/a.dwx", "1");
    commit_all();
    take("in");
    fs::create_directory_symlink(dir.path() / "out", place / "in");
    for (auto *path : {u"in/a.dwx", u"../out/a.dwx", u".git/config", u"."}) {
        EXPECT_EQ(remove({path}), "Skipped " + narrow(path) + ";done;");
        EXPECT_EQ(zErrorClass(), 2) << narrow(path);
    }
    EXPECT_EQ(tracked(), std::vector<std::string>{"in/a.dwx"});
    EXPECT_EQ(remove({u"in"}), "Deleted in;done;"); // the link, and what was tracked below
    EXPECT_TRUE(tracked().empty());
    EXPECT_EQ(read(dir.path() / "out/a.dwx"), "somebody else's");
}

// The reports come from under the lock, and see what a reader would.
TEST_F(IndexRemove, TheIndexIsWrittenInBatches) {
    struct Watching : Report {
        fs::path index;
        std::set<uintmax_t> sizes;
    } watching;
    watching.index = place / ".git/index";
    watching.action = [](auto *n, auto *, auto *) {
        auto &self = const_cast<Watching &>(*static_cast<const Watching *>(n));
        self.sizes.insert(fs::file_size(self.index));
    };
    std::vector<std::u16string> paths;
    for (int i = 0; i < 600; ++i) {
        put("d/" + std::to_string(i), "x");
        paths.push_back(wide("d/" + std::to_string(i)));
    }
    add({u"*"});
    EXPECT_OK(zIndexRemove(lock().get(), spec(paths, kLiteral, &watching).get()));
    EXPECT_EQ(watching.sizes.size(), 4u); // as it was, after 256, after 512, at the end
    EXPECT_TRUE(tracked().empty());
    EXPECT_FALSE(exists("d"));
}

// Git knows no lock of ours. What it has staged meanwhile is in the index that is written.
TEST_F(IndexRemove, TakesItsPathsOutOfWhatGitHasWritten) {
    put_all({"a", "b", "c"});
    add({u"a", u"b"});
    static fs::path where;
    where = place;
    os::calls.syncfs = [](int) {
        if (!where.empty()) git(std::exchange(where, {}), "add c");
        return 0;
    };
    EXPECT_EQ(remove({u"a"}), "Deleted a;done;");
    os::calls = kept;
    EXPECT_EQ(tracked(), (std::vector<std::string>{"b", "c"}));
}
