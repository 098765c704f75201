// A working copy in conflict, made by merges of git's own.
#pragma once

#include "copy_fixture.hpp"

#include "zev/conflict.h"

#include <functional>

#include <git2.h>

namespace test {

using ConflictPtr = Held<Conflict, zConflictFree>;
using ConflictsPtr = Held<ConflictList, zConflictListFree>;
using NodePtr = Held<ConflictNode, zConflictNodeFree>;
using AnalysisPtr = Held<ConflictAnalysis, zConflictAnalysisFree>;

// Content that git merges as a whole, like that of a drawing.
inline std::string drawing(const std::string &text) { return std::string(1, '\0') + text; }

class ConflictFixture : public WorkingCopyTest {
  protected:
    void put(const std::string &path, const std::string &text) {
        WorkingCopyTest::put(path, drawing(text));
    }
    std::string at(const std::string &path) {
        return std::filesystem::is_regular_file(place / path) ? read(place / path).substr(1)
                                                              : "(none)";
    }
    void take(const std::string &path) { std::filesystem::remove_all(place / path); }

    void commit(const char *message) {
        int status = -1;
        const std::string said =
            git(place,
                std::string("add -A && ") + kGit + "'" + place.string() + "' commit -qm " + message,
                &status);
        ASSERT_EQ(status, 0) << said;
    }

    // Both change the last commit; their branch is merged into ours, which must not go well.
    void merge(const std::function<void()> &theirs, const std::function<void()> &ours) {
        git(place, "checkout -qb theirs");
        theirs();
        commit("theirs");
        git(place, "checkout -q master");
        ours();
        commit("ours");
        int status = 0;
        const std::string said =
            git(place,
                std::string("status --short; ") + kGit + "'" + place.string() + "' merge -q theirs",
                &status);
        ASSERT_NE(status, 0) << said;
    }

    // What git sees of conflicts: "stage path;".
    std::string unmerged() {
        std::string lines = git(place, "-c core.quotepath=off ls-files -u"), text;
        for (size_t at = 0; at < lines.size(); at = lines.find('\n', at) + 1) {
            const size_t end = std::min(lines.find('\n', at), lines.size());
            const std::string line = lines.substr(at, end - at);
            text +=
                line.substr(line.find('\t') - 1, 1) + " " + line.substr(line.find('\t') + 1) + ";";
            if (end == lines.size()) break;
        }
        return text;
    }
    std::string porcelain() { return git(place, "-c core.quotepath=off status --porcelain -uall"); }

    // An entry of some content, as a merge would hand it over.
    EntryPtr entry(const char *path, const std::string &text, uint32_t mode = 0100644) {
        git_index_entry made{};
        const Oid id = blob(drawing(text));
        git_oid_fromraw(&made.id, id.id);
        made.mode = mode;
        made.path = path;
        return EntryPtr(zIndexEntryNew(zIndexEntryAsZev(&made)));
    }

    static std::string told(const ConflictNode *node) {
        std::string text = narrow(zConflictNodePath(node)) + ": ours";
        for (uint64_t i = 0; i < zConflictNodeOurCount(node); ++i)
            text += " " + narrow(zConflictNodeOurPath(node, i)) + "=" +
                    std::to_string(zConflictNodeOurStatus(node, i));
        text += ", theirs";
        for (uint64_t i = 0; i < zConflictNodeTheirCount(node); ++i)
            text += " " + narrow(zConflictNodeTheirPath(node, i)) + "=" +
                    std::to_string(zConflictNodeTheirStatus(node, i));
        return text + ";";
    }
    static std::string told(const ConflictAnalysis *analysis) {
        std::string text;
        for (uint64_t i = 0; analysis && i < zConflictAnalysisLength(analysis); ++i)
            text += told(zConflictAnalysisEntry(analysis, i));
        return text;
    }

  private:
    static constexpr const char *kGit =
        "GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null git -c user.name=Ada "
        "-c user.email=ada@example.com -C ";
};

} // namespace test
