// verify: everything that a working copy keeps can be read, and is what it was.
#include "verify.hpp"

namespace host {

void Report::problem(const Place &place, const std::string &what) {
    ++problems_;
    const bool known = !zOidIsZero(&place.commit);
    std::string where = place.path;
    if (known)
        where += (where.empty() ? "commit " : " in commit ") + hex(&place.commit).substr(0, 8);
    host.out.line(host.out.paint(Colour::red, "damaged") + "  " +
                  (where.empty() ? "" : where + ": ") + what);
    Record record("problem");
    record.set(u"path", place.path).set(u"message", what);
    if (known) record.set(u"commit", &place.commit);
    host.out.record(record);
}

int Report::finish() const {
    const auto number = [](uint64_t value) { return std::to_string(value); };
    host.out.line(number(commits) + " commits, " + number(trees) + " trees, " + number(files) +
                  " files, " + number(versions) + " versions of drawings, " + number(keys) +
                  " blocks: " + (problems_ ? number(problems_) + " problems" : "all well"));
    host.out.record(Record("summary")
                        .set(u"commits", commits)
                        .set(u"trees", trees)
                        .set(u"files", files)
                        .set(u"objects", objects)
                        .set(u"drawings", versions)
                        .set(u"blocks", keys)
                        .set(u"rows", rows)
                        .set(u"records", records)
                        .set(u"quick", quick)
                        .set(u"problems", problems_));
    return problems_ ? kFailed : kDone;
}

int verify(Host &host, const VerifyOptions &options) {
    WorkingCopy copy;
    Report report(host, options.quick);
    const std::vector<Tip> tips = check_references(report, copy);
    const Tables tables = check_objects(report, copy, tips);
    check_index(report, copy);
    check_tables(report, copy, tables);
    check_records(report, copy);
    check_locks(report, copy);
    return report.finish();
}

} // namespace host
