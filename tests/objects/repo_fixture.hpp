// A repository of the test's own on disk, and git beside it.
#pragma once

#include "support.hpp"

#include <initializer_list>
#include <utility>

namespace test {

template <auto Fn> struct Release {
    template <class T> void operator()(T *record) const { Fn(record); }
};
template <class T, auto Fn> using Held = std::unique_ptr<T, Release<Fn>>;

using RepositoryPtr = Held<Repository, zRepositoryFree>;
using TreePtr = Held<Tree, zTreeFree>;
using CommitPtr = Held<Commit, zCommitFree>;
using BuilderPtr = Held<TreeBuilder, zTreeBuilderFree>;
using OdbPtr = Held<Odb, zOdbFree>;
using ReferencePtr = Held<Reference, zReferenceFree>;
using DiffPtr = Held<DiffList, zDiffListFree>;
using StreamPtr = Held<Stream, zStreamFree>;

inline std::string hex(const Oid *id) {
    zwchar text[41] = {};
    return id && zOidFormat(text, id) ? narrow(text) : "(none)";
}

// Git as it comes, without the user's settings.
inline std::string git(const std::filesystem::path &directory, const std::string &arguments,
                       int *status = nullptr) {
    std::string text = run("GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null git -C '" +
                               directory.string() + "' " + arguments + " 2>&1",
                           status);
    while (text.ends_with('\n')) text.pop_back();
    return text;
}

// "kind old path>new path;" for each change.
inline std::string told(const DiffList *list) {
    if (!list) return "(null)";
    std::string text;
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        text += std::to_string(zDiffEntryStatus(entry)) + " " + narrow(zDiffEntryOldPath(entry)) +
                ">" + narrow(zDiffEntryNewPath(entry)) + ";";
    }
    return text;
}
template <class Free> std::string told(const std::unique_ptr<DiffList, Free> &list) {
    return told(list.get());
}

inline Oid parsed(std::string_view digits) {
    Oid id{};
    EXPECT_OK(zOidFromStr(&id, wide(digits).c_str())) << digits;
    return id;
}

class RepositoryTest : public testing::Test {
  protected:
    TempDir dir;
    std::filesystem::path place = dir.path() / "copy";
    RepositoryPtr repository{zRepositoryInit(place.u16string().c_str(), false)};

    void SetUp() override { ASSERT_OK(repository); }

    Oid named(const std::string &revision) { return parsed(git(place, "rev-parse " + revision)); }

    // Another handle, without what this one has cached.
    RepositoryPtr opened() { return RepositoryPtr(zRepositoryOpen(place.u16string().c_str())); }

    // An object's file goes, as if it were with the server alone.
    void lose(const std::string &revision) {
        const std::string id = git(place, "rev-parse " + revision);
        EXPECT_TRUE(
            std::filesystem::remove(place / ".git/objects" / id.substr(0, 2) / id.substr(2)));
    }

    Oid blob(std::string_view bytes) {
        Oid id{};
        OdbPtr odb(zOdbOpen(repository.get()));
        StreamPtr stream(zMemStream(0, 0));
        zStreamWrite(stream.get(), bytes.data(), bytes.size());
        zStreamRewind(stream.get());
        EXPECT_OK(zOdbWrite(&id, odb.get(), Z_OBJECT_BLOB, bytes.size(), stream.get()));
        return id;
    }

    TreePtr tree(std::initializer_list<std::pair<const zwchar *, std::string_view>> files) {
        BuilderPtr builder(zTreeBuilderNew(repository.get(), nullptr));
        for (auto &[path, bytes] : files) {
            Oid id = blob(bytes);
            EXPECT_OK(zTreeBuilderInsert(builder.get(), path, &id)) << narrow(path);
        }
        return TreePtr(zTreeBuilderWrite(builder.get(), repository.get()));
    }

    CommitPtr commit(std::initializer_list<std::pair<const zwchar *, std::string_view>> files,
                     const zwchar *message = u"change", const zwchar *reference = u"HEAD") {
        return CommitPtr(zCommitCreate(reference, u"Ada", message, tree(files).get()));
    }

    // Nothing to complain of, and every object whole.
    void expect_sound() { expect_sound(place); }
    static void expect_sound(const std::filesystem::path &where) {
        int status = -1;
        std::string text = git(where, "fsck --strict --full", &status);
        EXPECT_EQ(status, 0) << text;
    }
};

} // namespace test
