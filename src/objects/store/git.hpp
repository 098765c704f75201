// Guards for libgit2's handles.
#pragma once

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"

#include <algorithm>
#include <string>

#include <git2.h>

namespace zev::git {

using Blob = Owned<git_blob, git_blob_free>;
using Commit = Owned<git_commit, git_commit_free>;
using Config = Owned<git_config, git_config_free>;
using Diff = Owned<git_diff, git_diff_free>;
using Entry = Owned<git_tree_entry, git_tree_entry_free>;
using Index = Owned<git_index, git_index_free>;
using MatchList = Owned<git_pathspec_match_list, git_pathspec_match_list_free>;
using Object = Owned<git_object, git_object_free>;
using Odb = Owned<git_odb, git_odb_free>;
using OdbObject = Owned<git_odb_object, git_odb_object_free>;
using OdbStream = Owned<git_odb_stream, git_odb_stream_free>;
using Pathspec = Owned<git_pathspec, git_pathspec_free>;
using Reference = Owned<git_reference, git_reference_free>;
using Remote = Owned<git_remote, git_remote_free>;
using Repository = Owned<git_repository, git_repository_free>;
using Revwalk = Owned<git_revwalk, git_revwalk_free>;
using Signature = Owned<git_signature, git_signature_free>;
using Tag = Owned<git_tag, git_tag_free>;
using Tree = Owned<git_tree, git_tree_free>;

// Oid has the layout of git_oid.
static_assert(sizeof(::Oid) == sizeof(git_oid));
inline const git_oid *oid(const ::Oid *id) { return reinterpret_cast<const git_oid *>(id); }
inline git_oid *oid(::Oid *id) { return reinterpret_cast<git_oid *>(id); }
inline const ::Oid *oid(const git_oid *id) { return reinterpret_cast<const ::Oid *>(id); }

// A commit, tree, blob or tag as the object that it is, and back, when its type was looked at.
template <class To, class From> To *as(From *handle) { return reinterpret_cast<To *>(handle); }

// A path of the file system as libgit2 takes it; callers may give either slash.
inline std::string path(std::u16string text) {
    std::ranges::replace(text, u'\\', u'/');
    return to_utf8(text);
}

} // namespace zev::git
