// verify: everything that a working copy keeps can be read, and is what it was. The library finds
// what isn't; here it is said.
#include "dxf/summary.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    bool quick = false; // that everything is there, without reading all of it
};

void declare(Command &verb, Options &options) {
    verb.description("Read all that was ever committed and report what is damaged");
    verb.footer(
        "Objects, references, index, the drawings with every row that they name, records of\n"
        "history, locks that were left. With --quick files are looked for and not read, and\n"
        "rows by their keys.\n"
        "Examples:\n  zev verify\n  zev verify --quick --json");
    verb.add_flag("--quick", options.quick, "Only that everything is there");
}

// What the library finds, in parts that a colon divides.
constexpr const char *kFindings[] = {
    "%s of %s blocks that are not committed yet are missing from table %s",
    "%s of %s blocks are missing from table %s",
    "table %s holds other blocks than were saved under its keys",
    "table %s is missing",
    "staged, and its object %s is missing",
    "leads to %s, which there isn't",
    "is gone; by its log it was at %s",
    "is at %s, by its log at %s",
    "its log is missing",
    "%s is missing",
    "%s is damaged at its end",
    "%s is damaged",
    "%s is cut off",
    "%s has a damaged index",
    "%s has a damaged block",
    "%s has a damaged record",
    "damaged tree %s",
    "object %s",
    "table %s",
    "is missing",
    "is damaged",
    "damaged",
    "is no commit",
    "has no pack",
    "can't be read",
    "ends within a line",
    "leads to no branch",
    "no id, and no name of another reference",
    "it has another sum than it says",
    "its counter is behind its rows",
    "packed-refs has a line that is no reference",
    "the record of the commit can't be read",
    "the record of the commit says something else than it does",
    "left by a process that died; the next command that changes something puts it right",
    "a lock; unless git is at work, it was left behind",
};

std::string in_users_words(const std::string &told) {
    constexpr std::string_view kUnneeded = "; no commit needs it";
    if (told.ends_with(kUnneeded)) {
        const size_t size = told.size() - kUnneeded.size();
        return say("%s; no commit needs it", in_users_words(told.substr(0, size)));
    }
    const size_t colon = told.rfind(": ");
    if (colon == told.npos) return said(retold(told, kFindings));
    return in_users_words(told.substr(0, colon)) + ": " + in_users_words(told.substr(colon + 2));
}

void tell_damage(Host &host, const VerifyFinding &finding) {
    const std::string path = narrow(finding.path), what = in_users_words(narrow(finding.reason));
    std::string where = path;
    if (finding.commit) {
        const std::string id = hex(finding.commit).substr(0, 8);
        where = path.empty() ? say("commit %s", id) : say("%s in commit %s", path, id);
    }
    host.out.line(host.out.paint(Colour::red, say("damaged")) + "  " +
                  (where.empty() ? "" : where + ": ") + what);
    Record record("problem");
    record.set(u"path", path).set(u"message", what);
    if (finding.commit) record.set(u"commit", finding.commit);
    host.out.record(record);
}

void tell(const VerifyFinding *finding, void *context) {
    Host &host = *static_cast<Host *>(context);
    if (finding->kind == Z_FINDING_DAMAGE)
        tell_damage(host, *finding);
    else
        host.out.warn(in_users_words(narrow(finding->reason)));
}

bool find_digest(DrawingDigest *digest, const void *summary, uint64_t length, void *) {
    const auto found = dxf::digest_in({static_cast<const char *>(summary), length});
    if (found) *digest = *found;
    return found.has_value();
}

int finish(Host &host, const VerifyCounts &counts, bool quick) {
    const uint64_t problems = counts.damages;
    host.out.line(say("%s, %s, %s, %s of drawings, %s: %s", plural(counts.commits, "commit"),
                      plural(counts.trees, "tree"), plural(counts.files, "file"),
                      plural(counts.drawings, "version"), plural(counts.blocks, "row"),
                      problems ? plural(problems, "problem") : say("all well")));
    host.out.record(Record("summary")
                        .set(u"commits", counts.commits)
                        .set(u"trees", counts.trees)
                        .set(u"files", counts.files)
                        .set(u"objects", counts.objects)
                        .set(u"drawings", counts.drawings)
                        .set(u"blocks", counts.blocks)
                        .set(u"rows", counts.rows)
                        .set(u"records", counts.records)
                        .set(u"quick", quick)
                        .set(u"problems", problems));
    return problems ? kFailed : kDone;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const VerifySpec spec{.parts = Z_VERIFY_ALL,
                          .quick = options.quick,
                          .notify = host.notify,
                          .found = tell,
                          .digest = find_digest,
                          .context = &host};
    VerifyCounts counts{};
    if (!zVerify(&counts, copy.repository(), &spec)) {
        stop_on_break(host.notify);
        fail_raised();
    }
    return finish(host, counts, options.quick);
}

} // namespace

extern const Verb kVerifyVerb{"verify", Group::history, Nature::plain, bind<Options, declare, run>};

} // namespace host
