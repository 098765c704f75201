// A verification is its parts, in the order in which one leans on another: objects are those that
// references lead to, tables hold what drawings among the objects name, records copy commits.
#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "verify/parts.hpp"
#include "zev/oid.h"

#include <cstring>
#include <string_view>

using namespace zev;
using namespace zev::verify;

namespace zev::verify {

std::string hex(const Oid &id) { return git_oid_tostr_s(git::oid(&id)); }

bool parse_id(std::string_view digits, Oid *id) {
    return digits.size() == GIT_OID_HEXSZ &&
           digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos &&
           !git_oid_fromstrn(git::oid(id), digits.data(), digits.size());
}

Report::Report(Repository *repository, const VerifySpec &spec)
    : repository(repository), is_partial(follows_server(repository)), spec_(spec) {}

void Report::tell(int32_t kind, const Place &place, const std::string &reason) const {
    if (!spec_.found) return;
    const std::u16string path = to_wide(place.path), why = to_wide(reason);
    const Oid *commit = zOidIsZero(&place.commit) ? nullptr : &place.commit;
    const VerifyFinding finding{kind, path.c_str(), commit, why.c_str()};
    spec_.found(&finding, spec_.context);
}

void Report::damage(const Place &place, const std::string &reason) {
    ++counts.damages;
    tell(Z_FINDING_DAMAGE, place, reason);
}

void Report::left_over(const std::string &reason) { tell(Z_FINDING_LEFT_OVER, {}, reason); }

void Report::progress(const char *what, const std::string &which) const {
    zNotifyProgress(spec_.notify, u"%hs %hs", what, which.c_str());
}

bool Report::broken() {
    if (stopped_ || !zNotifyIsUsrbrk(spec_.notify)) return stopped_;
    raise_canceled();
    return stop();
}

} // namespace zev::verify

bool zVerify(VerifyCounts *counts, Repository *repository, const VerifySpec *spec) try {
    if (!repository || !spec || !(spec->parts & Z_VERIFY_ALL)) return fail_args();
    Report report(repository, *spec);
    const Finally count([&] {
        if (counts) *counts = report.counts;
    });
    const std::vector<Tip> tips = check_references(report);
    const Tables tables = check_objects(report, tips);
    check_index(report);
    check_tables(report, tables);
    check_records(report);
    check_locks(report);
    return !report.stopped();
} catch (...) {
    return fail_thrown();
}
