// A working copy in conflict, made by merges of git's own.
#pragma once

#include "copy_fixture.hpp"

#include "zev/conflict.h"

#include <functional>
#include <sstream>

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
    void commit(const char *message) { git_commit(message); }

    // Both change the last commit; their branch is merged into ours, which must not go well.
    void merge(const std::function<void()> &theirs, const std::function<void()> &ours) {
        git(place, "checkout -qb theirs");
        theirs();
        git_commit("theirs");
        git(place, "checkout -q master");
        ours();
        git_commit("ours");
        int status = 0;
        const std::string said = git_as("merge -q theirs", &status);
        ASSERT_NE(status, 0) << said;
    }

    // What git sees of conflicts: "stage path;".
    std::string unmerged() {
        std::istringstream lines(git(place, "-c core.quotepath=off ls-files -u"));
        std::string text;
        for (std::string line; std::getline(lines, line);) {
            const size_t tab = line.find('\t');
            text += line.substr(tab - 1, 1) + " " + line.substr(tab + 1) + ";";
        }
        return text;
    }
    // Without the byte that makes the content a drawing's.
    std::string trashed() {
        std::string all = WorkingCopyTest::trashed();
        std::erase(all, '\0');
        return all;
    }

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
        const auto side = [node](auto count, auto path, auto status) {
            std::string text;
            for (uint64_t i = 0; i < count(node); ++i)
                text += " " + narrow(path(node, i)) + "=" + std::to_string(status(node, i));
            return text;
        };
        return narrow(zConflictNodePath(node)) + ": ours" +
               side(zConflictNodeOurCount, zConflictNodeOurPath, zConflictNodeOurStatus) +
               ", theirs" +
               side(zConflictNodeTheirCount, zConflictNodeTheirPath, zConflictNodeTheirStatus) +
               ";";
    }
    static std::string told(const ConflictAnalysis *analysis) {
        std::string text;
        for (uint64_t i = 0; analysis && i < zConflictAnalysisLength(analysis); ++i)
            text += told(zConflictAnalysisEntry(analysis, i));
        return text;
    }
};

} // namespace test
