// info: where a copy comes from, who the user is there, and how far it is behind.

#include "detached.hpp"
#include "server.hpp"
#include "server_note.hpp"
#include "show.hpp"
#include "verb.hpp"
#include "when.hpp"

namespace host {

namespace {

struct Options {
    bool offline = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Show where this copy comes from, who you are there, how far it is behind");
    verb.footer("Examples:\n  zev info\n  zev info --offline --json");
    verb.add_flag("--offline", options.offline, "Ask nobody; tell what was known last");
}

// The commits of the server that the copy hasn't come to; nothing where its own isn't among them.
std::optional<uint64_t> commits_behind(const WorkingCopy &copy, const Oid &newest, const Oid &at) {
    OwnedCommit commit(zCommitByid(copy.repository(), &newest));
    for (uint64_t count = 0; commit; ++count) {
        if (zOidIsEqual(zCommitId(commit.get()), &at)) return count;
        commit.reset(zCommitParentCount(commit.get()) ? zCommitParent(commit.get()) : nullptr);
    }
    return {};
}

struct State {
    std::string url, user, branch;
    ServerNote note;
    std::optional<Oid> newest; // of the server's branch
    std::optional<uint64_t> commits, files;
    ServerStanding standing;
    bool is_detached = false;
    std::string unreached; // why the server could not be asked
};

// Brings what the count takes: commits, and the trees of the newest.
void ask(Host &host, const WorkingCopy &copy, State &state) try {
    const OwnedRemote remote = open_remote(copy);
    const OwnedSpec all(check(zPathSpecNew(nullptr, 0)));
    check(OwnedDiff(zRemoteListUpdates(remote.get(), all.get(), true)));
    note_answer(copy, nullptr);
    state.note = read_note(copy);
    const OwnedCommit newest = server_commit(copy);
    if (newest && state.note.at && !zOidIsEqual(zCommitId(newest.get()), &*state.note.at))
        check(zRemoteDownloadCommits(remote.get(), zCommitId(newest.get()), 0, host.notify));
} catch (const Failed &failed) {
    stop_on_break(host.notify);
    state.unreached = failed.what();
}

State look(Host &host, const WorkingCopy &copy, const Options &options) {
    State state;
    state.url = origin_of(copy);
    if (state.url.empty()) return state;
    if (const auto account = find_account(server_of(state.url))) state.user = account->user;
    state.note = read_note(copy);
    state.is_detached = is_detached(copy);
    if (state.is_detached) return state; // and follows nothing that could be ahead
    state.branch = followed_branch(copy);
    if (!options.offline) ask(host, copy, state);
    if (const OwnedCommit newest = server_commit(copy)) state.newest = *zCommitId(newest.get());
    state.files = known_updates(copy);
    state.standing = known_standing(copy);
    const bool is_newest = state.newest && state.files && !*state.files;
    if (is_newest) state.note.at = state.newest; // it may have come piece by piece
    if (state.newest && state.note.at)
        state.commits = commits_behind(copy, *state.newest, *state.note.at);
    return state;
}

std::string behind(const State &state) {
    if (!state.newest) return say("the server's project is empty so far");
    if (state.files && !*state.files) return say("up to date");
    std::string text;
    if (state.commits && *state.commits) text = count_of(*state.commits, "commit");
    if (state.files) text += (text.empty() ? "" : ", ") + count_of(*state.files, "file");
    return text.empty() ? say("the server has another state") : say("%s behind", text);
}

void print(Host &host, const WorkingCopy &copy, const State &state) {
    const auto line = [&](const char *name, const std::string &text) {
        if (!text.empty()) host.out.line(padded(said(name), 10) + text);
    };
    line("copy", copy.root().string());
    line("server", state.url.empty() ? say("none") : state.url);
    if (state.url.empty()) return;
    line("you", state.user.empty() ? say("not logged in") : state.user);
    if (state.is_detached) return host.out.line(detached_text(copy));
    line("branch", state.branch.substr(state.branch.rfind('/') + 1));
    line("at", state.note.at ? short_id(&*state.note.at) : "");
    line("newest", state.newest ? short_id(&*state.newest) : "");
    line("state", behind(state));
    for (const std::string &text : standing_lines(state.standing)) line("", text);
    line("asked", state.note.seconds ? short_time(state.note.seconds) : say("never"));
    if (!state.unreached.empty())
        host.out.warn(say("the server could not be asked: %s", state.unreached));
}

int run(Host &host, const Options &options) {
    const WorkingCopy copy;
    const State state = look(host, copy, options);
    print(host, copy, state);
    Record record("copy");
    record.set(u"path", copy.root().string());
    if (!state.url.empty()) record.set(u"url", state.url);
    if (!state.branch.empty()) record.set(u"branch", state.branch);
    if (!state.user.empty()) record.set(u"user", state.user);
    if (state.note.at) record.set(u"at", &*state.note.at);
    if (state.newest) record.set(u"newest", &*state.newest);
    if (state.commits) record.set(u"commits", *state.commits);
    if (state.files) record.set(u"updates", *state.files);
    set_standing(record, state.standing);
    if (state.note.seconds)
        record.set(u"asked", iso_time(state.note.seconds)).set(u"seconds", state.note.seconds);
    if (!state.unreached.empty()) record.set(u"unreached", state.unreached);
    host.out.record(record);
    return kDone;
}

} // namespace

extern const Verb kInfoVerb{"info", Group::server, Nature::plain, bind<Options, declare, run>};

} // namespace host
