// The local branch has commits of its own: those of the server are found from the branch that
// tracks it, or asked for. Of what a server sends only sound ids and names are taken.
#include "remote_copy.hpp"

#include "plain_words.hpp"
#include "server.hpp"
#include "verb.hpp"
#include "walks.hpp"

#include <algorithm>
#include <cstring>

namespace host {

namespace {

using OwnedBranch = Owned<Branch, zBranchFree>;

constexpr int kUnauthorized = 401;
constexpr uint64_t kLargest = 32u << 20; // bytes of an answer that is taken apart in memory

// ---- Addresses

// Where "owner/name" begins at the end of an address without "/repos/", or npos.
size_t project_at(const std::string &url) {
    const size_t name = url.rfind('/');
    if (name == url.npos || !name) return url.npos;
    const size_t owner = url.rfind('/', name - 1);
    return owner == url.npos || !owner || url[owner - 1] == '/' ? url.npos : owner;
}

bool is_project(const std::string &text) {
    const size_t slash = text.find('/');
    return slash && slash != text.npos && slash + 1 < text.size() &&
           text.find('/', slash + 1) == text.npos;
}

// ---- Branches

OwnedBranch upstream_of(const WorkingCopy &copy) {
    const OwnedBranch head(zBranchHead(copy.repository()));
    OwnedBranch upstream(head ? zBranchUpstream(head.get()) : nullptr);
    if (upstream) return upstream;
    if (zErrorClass() != kNotFound) fail_raised();
    const std::string back = following_branch(copy);
    const std::string here = head ? say("branch %s", narrow(zBranchName(head.get()))) : "HEAD";
    if (back.empty()) throw Failed(kNotFound, say("%s follows no branch of the server", here));
    throw Failed(kNotFound, say("%s follows no branch of the server; \"zev switch %s\" goes back",
                                here, back));
}

// ---- What the server is asked

std::string log_in_anew(const std::string &what, const std::string &url) {
    return say("%s; \"zev login %s\" logs in anew", what, server_of(url));
}

HttpResponse *get(const Host &host, HttpRequest *request, const std::string &url) {
    check(zHttpRequestSetAccepts(request, u"application/json", u"UTF-8", zLangProduct()));
    HttpResponse *response = check(zHttpRequestGet(request));
    if (zHttpResponseOk(response)) return response;
    stop_on_break(host.notify);
    const int code = zHttpResponseCode(response);
    const std::string text = url + ": " + narrow(zHttpResponseStrerr(response));
    throw Failed(kNetwork, code, code == kUnauthorized ? log_in_anew(text, url) : text);
}

OwnedJson ask(const Host &host, Remote *remote, const std::string &tail) {
    const std::string url = narrow(zRemoteUrl(remote));
    HttpRequest *request = check(zRemoteConnect(remote, host.notify));
    check(zHttpRequestSetUrl(request, wide(url + tail).c_str()));
    HttpResponse *response = get(host, request, url);
    Stream *body = zHttpResponseBody(response);
    const bool fits = body && zStreamSize(body) <= kLargest;
    OwnedJson json(fits ? zJsonReadStream(body) : nullptr);
    if (!json) throw Failed(kNetwork, -1, say("%s: the answer makes no sense", url));
    return json;
}

std::string text_at(const Json *object, const zwchar *name) {
    const Json *node = zJsonIsObject(object) ? zJsonObjectAt(object, name) : nullptr;
    return node && zJsonIsString(node) ? narrow(zJsonGetString(node)) : "";
}

bool names(const std::string &full, const std::string &given) {
    if (full == given) return true;
    const auto below = [&](const char *prefix) { return full == prefix + given; };
    return below("refs/heads/") || below("refs/tags/");
}

// ---- Revisions

bool is_hex(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

Oid parse_oid(const std::string &digits) {
    Oid id;
    check(zOidFromStr(&id, wide(digits).c_str()));
    return id;
}

// The commits from `head` back; their objects come here, without trees.
std::vector<Oid> history(const Host &host, const WorkingCopy &copy, Remote *remote,
                         const Oid &head) {
    check(zRemoteDownloadCommits(remote, &head, 0, host.notify));
    std::vector<Oid> ids;
    OwnedCommit commit(check(zCommitByid(copy.repository(), &head)));
    while (commit) {
        ids.push_back(*zCommitId(commit.get()));
        commit.reset(zCommitParentCount(commit.get()) ? zCommitParent(commit.get()) : nullptr);
    }
    return ids;
}

Oid by_digits(const std::vector<Oid> &line, std::string digits) {
    std::transform(digits.begin(), digits.end(), digits.begin(),
                   [](unsigned char c) { return static_cast<char>(c | 32); });
    const Oid *found = nullptr;
    for (const Oid &id : line) {
        if (!hex(&id).starts_with(digits)) continue;
        if (found) throw Failed(kInvalid, say("\"%s\" begins more than one commit's id", digits));
        found = &id;
    }
    if (!found) throw Failed(kNotFound, say("\"%s\" names no commit of the server", digits));
    return *found;
}

} // namespace

// ---- Addresses

std::string project_url(const std::string &given) {
    std::string url = given;
    while (url.ends_with('/')) url.pop_back();
    if (is_project(url) && url.find(':') == url.npos) return find_server("") + "/repos/" + url;
    const size_t repos = url.find("/repos/");
    const size_t at = repos == url.npos ? project_at(url) : repos + strlen("/repos");
    if (at != url.npos && is_project(url.substr(at + 1)))
        return server_of(url.substr(0, repos == url.npos ? at : repos)) + "/repos" + url.substr(at);
    throw Failed(kInvalid,
                 say("%s: names no project, such as http://plant:3001/team/house", given));
}

std::string project_name(const std::string &url) { return url.substr(url.rfind('/') + 1); }

// A clone that git made has an origin as well, which is no server of ours.
std::string origin_of(const WorkingCopy &copy) {
    const Owned<zwchar, zStrfreeW> raw(zRepositoryRemoteUrl(copy.repository()));
    if (!raw && zErrorClass() != kNotFound) fail_raised();
    const std::string url = narrow(raw.get());
    const size_t repos = url.find("/repos/");
    const bool ours = (url.starts_with("http://") || url.starts_with("https://")) &&
                      repos != url.npos && is_project(url.substr(repos + strlen("/repos/")));
    return ours ? url : "";
}

// ---- Sessions

std::string log_on(const std::string &url) {
    const std::string server = server_of(url);
    if (!use_account(server))
        throw Failed(kServer, kUnauthorized,
                     say("not logged in to %1$s; \"zev login %1$s\" does it", server));
    return find_account(server)->user;
}

void require_project(const Host &host, const std::string &url) {
    const Owned<HttpRequest, zHttpRequestFree> request(check(zHttpRequestNew(wide(url).c_str())));
    zwchar user[Z_LOGIN_MAX], code[Z_LOGIN_MAX];
    if (zLoginInfoGet(user, nullptr, code))
        check(zHttpRequestSetAccount(request.get(), user, code));
    check(zHttpRequestSetNotify(request.get(), host.notify));
    get(host, request.get(), url);
}

OwnedRemote open_remote(const WorkingCopy &copy) {
    const std::string url = origin_of(copy);
    if (url.empty())
        throw Failed(kNotFound, say("%s: has no server; \"zev get\" makes a copy of a project",
                                    copy.root().string()));
    upstream_of(copy);
    log_on(url);
    return OwnedRemote(check(zRemoteOpen(copy.repository())));
}

// ---- Branches

std::string following_branch(const WorkingCopy &copy) {
    std::string found;
    each_reference(copy.repository(), [&](Reference *reference) {
        const OwnedBranch branch(zBranchLookup(copy.repository(), zReferenceName(reference)));
        if (!branch || !zBranchIsLocal(branch.get())) return true;
        if (OwnedBranch(zBranchUpstream(branch.get()))) found = narrow(zBranchName(branch.get()));
        return found.empty();
    });
    return found;
}

bool follows(const WorkingCopy &copy, const std::string &name) {
    const OwnedBranch branch(check(zBranchLookup(copy.repository(), wide(name).c_str())));
    return OwnedBranch(zBranchUpstream(branch.get())) != nullptr;
}

std::string followed_branch(const WorkingCopy &copy) {
    const OwnedRemote remote(check(zRemoteOpen(copy.repository())));
    const OwnedBranch head(check(zBranchHead(copy.repository())));
    const std::string tracking = narrow(zBranchMerge(upstream_of(copy).get()));
    const std::string prefix = "refs/remotes/" + narrow(zRemoteName(remote.get())) + "/";
    return tracking.starts_with(prefix) ? "refs/heads/" + tracking.substr(prefix.size())
                                        : narrow(zBranchMerge(head.get()));
}

OwnedCommit server_commit(const WorkingCopy &copy) {
    const OwnedBranch upstream = upstream_of(copy);
    if (!zReferenceExists(copy.repository(), zBranchMerge(upstream.get()))) return {};
    return OwnedCommit(check(zBranchCommit(upstream.get())));
}

OwnedCommit known_commit(const WorkingCopy &copy) {
    Repository *repository = copy.repository();
    const OwnedBranch head(zBranchHead(repository));
    OwnedBranch upstream(head ? zBranchUpstream(head.get()) : nullptr);
    if (const std::string name = upstream ? "" : following_branch(copy); !name.empty()) {
        const OwnedBranch branch(zBranchLookup(repository, (u"refs/heads/" + wide(name)).c_str()));
        if (branch) upstream.reset(zBranchUpstream(branch.get()));
    }
    if (!upstream || !zReferenceExists(repository, zBranchMerge(upstream.get()))) return {};
    return OwnedCommit(check(zBranchCommit(upstream.get())));
}

std::optional<Oid> ask_head(const Host &host, Remote *remote, const std::string &name) {
    const OwnedJson answer = ask(host, remote, "/refs");
    const Json *entries = zJsonPathGet(answer.get(), u"data.entries");
    const uint64_t count = entries && zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t i = 0; i < count; ++i) {
        const Json *entry = zJsonArrayAt(entries, i);
        const std::string target = text_at(entry, u"target");
        if (names(text_at(entry, u"refname"), name) && target.size() == 40 && is_hex(target))
            return parse_oid(target);
    }
    return {};
}

// ---- Revisions

Oid server_revision(const Host &host, const WorkingCopy &copy, Remote *remote,
                    const std::string &revision) {
    const size_t suffix = std::min(revision.find_first_of("~^"), revision.size());
    std::string name = revision.substr(0, suffix);
    std::optional<Oid> id;
    if (name.size() == 40 && is_hex(name)) {
        id = parse_oid(name);
    } else if (name == "HEAD") {
        id = ask_head(host, remote, followed_branch(copy));
    } else if (!name.empty()) {
        id = ask_head(host, remote, name);
    }
    if (!id && name.size() >= 4 && is_hex(name)) {
        const std::optional<Oid> head = ask_head(host, remote, followed_branch(copy));
        if (head) id = by_digits(history(host, copy, remote, *head), name);
    }
    if (!id) throw Failed(kNotFound, say("\"%s\" names no commit of the server", name));
    if (suffix == revision.size()) return *id;
    history(host, copy, remote, *id);
    return *zCommitId(copy.commit(hex(&*id) + revision.substr(suffix)).get());
}

// ---- Failures

void fail_remote(const Host &host, const std::string &url) {
    const Failed failed = raised();
    if (broken())
        throw Failed(kCanceled, "cancelled; what has come stays, and the next try goes on from it");
    if (host.notify->outcome().unanswered)
        throw Failed(kCanceled, "nothing was changed; --answer tells what is meant");
    if (failed.error_class == kNetwork && failed.code == kUnauthorized &&
        !host.notify->outcome().unauthorized)
        throw Failed(kNetwork, kUnauthorized, log_in_anew(failed.what(), url));
    if (failed.error_class != kNetwork && is_no_space(failed)) {
        host.out.drop_reason();
        throw no_space_for(std::filesystem::current_path());
    }
    throw failed;
}

} // namespace host
