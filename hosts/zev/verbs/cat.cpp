// cat: a file of a commit, as it is.

#include "bytes.hpp"
#include "server_history.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    std::string file;
};

void declare(Command &verb, Options &options) {
    verb.description("Write a file of a commit to stdout");
    verb.footer("Examples:\n  zev cat HEAD~1:plan.dwx > old.dwx\n  zev cat HEAD:./plan.dwx");
    verb.add_option("file", options.file,
                    "A commit, a colon, and a path from the top directory; ./ begins one from here")
        ->required()
        ->type_name("REV:PATH");
}

std::string base64(const std::string &data) {
    static constexpr char digits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < data.size(); i += 3) {
        uint32_t bits = 0;
        for (size_t j = i; j < i + 3; ++j)
            bits = bits << 8 | (j < data.size() ? static_cast<uint8_t>(data[j]) : 0);
        for (int shift = 18; shift >= 0; shift -= 6) out += digits[bits >> shift & 63];
    }
    size_t missing = (3 - data.size() % 3) % 3;
    return out.replace(out.size() - missing, missing, missing, '=');
}

// Text that comes back from JSON as it was: UTF-8, nothing that cleaning would change.
bool is_plain_text(const std::string &data) {
    return data.find('\0') == std::string::npos && clean(data) == data &&
           narrow(wide(data).c_str()) == data;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    RevisionPath name = parse_revision_path(options.file);
    name.path = copy.in_commit(name.path);
    OwnedCommit commit = commit_with(host, copy, name.revision, name.path);
    OwnedTreeEntry entry = copy.file(commit.get(), name.path);
    OwnedOdb odb(check(zOdbOpen(copy.repository())));
    if (!host.out.json()) {
        OwnedStream out(check(zStdioStream(stdout)));
        check(zOdbRead(odb.get(), zTreeEntryId(entry.get()), out.get()));
        return kDone;
    }
    Bytes bytes;
    read_object(odb.get(), zTreeEntryId(entry.get()), bytes);
    bool text = is_plain_text(bytes.data);
    host.out.record(Record("blob")
                        .set(u"path", name.path)
                        .set(u"id", zTreeEntryId(entry.get()))
                        .set(u"size", uint64_t{bytes.data.size()})
                        .set(u"encoding", text ? "utf-8" : "base64")
                        .set(u"content", text ? bytes.data : base64(bytes.data)));
    return kDone;
}

} // namespace

extern const Verb kCatVerb{"cat", Group::history, Nature::plain, bind<Options, declare, run>};

} // namespace host
