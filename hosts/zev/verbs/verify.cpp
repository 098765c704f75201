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

void tell_damage(Host &host, const VerifyFinding &finding) {
    const std::string path = narrow(finding.path), what = narrow(finding.reason);
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
        host.out.warn(narrow(finding->reason));
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
