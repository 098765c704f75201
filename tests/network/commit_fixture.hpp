// Commits of a project, made by the system's git beside the service.
#pragma once

#include "service_fixture.hpp"

namespace test {

// HEAD's tree with one file more, or without it where the bytes are null; gives the commit's id.
inline std::string commit_file(const Service &service, const std::string &project,
                               const std::string &path, const std::string *bytes, int hour = 0) {
    const std::string date = "2020-01-01T0" + std::to_string(hour) + ":00:00Z";
    const auto file = service.root() / "file";
    if (bytes) write(file, *bytes);
    const std::string put =
        bytes ? "git update-index --add --cacheinfo 100644,$(git hash-object -w " + file.string() +
                    ")," + path
              : "printf '0 " + std::string(40, '0') + "\\t" + path +
                    "\\n' | git update-index --index-info";
    return run("cd " + service.at(project) + " && export GIT_INDEX_FILE=$PWD/../index" +
               " GIT_AUTHOR_DATE=" + date + " GIT_COMMITTER_DATE=" + date +
               " && git read-tree --empty && { git read-tree HEAD 2>/dev/null || true; } && " +
               put + " && c=$(git -c user.name=Ann -c user.email=a commit-tree $(git write-tree)" +
               " -m 'put " + path + "' $(git rev-parse -q --verify HEAD | sed 's/^/-p /'))" +
               " && git update-ref HEAD $c && printf %s $c");
}

} // namespace test
