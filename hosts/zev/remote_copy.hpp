// Remote copy: a working copy of a server's project, and what the user's words mean there.
#pragma once

#include "copy.hpp"
#include "host_notify.hpp"

#include <string>

namespace host {

struct Host;

using OwnedRemote = Owned<Remote, zRemoteFree>;

// The project that the user means: an address, with or without "/repos", or "owner/name" on the
// server of the last login. Throws for what names none.
std::string project_url(const std::string &given);
std::string project_name(const std::string &url); // "house" of ".../repos/team/house"

// The address of the project that a copy comes from; empty for one without a server.
std::string origin_of(const WorkingCopy &copy);

// From here on requests go out with the user's account there, which comes back. Throws without one.
std::string log_on(const std::string &url);

// Asks for a project before anything is made of it. Throws what the server says against it.
void require_project(const Host &host, const std::string &url);

// The session with the server of a copy, logged on. Throws for a copy without a server.
OwnedRemote open_remote(const WorkingCopy &copy);

// Whether a branch, by its full name, follows one of the server's.
bool follows(const WorkingCopy &copy, const std::string &branch);

// The short name of a branch that follows one of the server's; empty without one.
std::string following_branch(const WorkingCopy &copy);

// The server's branch that the copy follows: by its full name there; its newest commit as far as
// it is known here, null for none.
std::string followed_branch(const WorkingCopy &copy);
OwnedCommit server_commit(const WorkingCopy &copy);
// The same where HEAD follows no branch of the server's, of one that does; null for none.
OwnedCommit known_commit(const WorkingCopy &copy);

// The newest commit of a reference at the server, by its full or short name: asked for, with
// nothing changed here but what comes into the store. Nothing where the server has none.
std::optional<Oid> ask_head(const Host &host, Remote *remote, const std::string &name);

// A commit of the server: 40 digits; HEAD for the newest of the branch; the first four or more
// digits of one in its history; a branch or tag there; ~N and ^ as everywhere. Throws.
Oid server_revision(const Host &host, const WorkingCopy &copy, Remote *remote,
                    const std::string &revision);

// What an operation over a server failed with, as the user is told.
[[noreturn]] void fail_remote(const Host &host, const std::string &url);

} // namespace host
