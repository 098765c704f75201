// One line a finding. Rows are compared with the digest that a drawing's summary block keeps.
#include "findings.hpp"

#include "dxf/summary.hpp"

#include <cstdio>

namespace host {

namespace {

void tell(const VerifyFinding *finding, void *context) {
    const auto &name = *static_cast<const std::string *>(context);
    std::string text = narrow(finding->path);
    if (!text.empty()) text += ": ";
    text += narrow(finding->reason);
    if (finding->commit) {
        zwchar id[41] = {};
        zOidFormat(id, finding->commit);
        text += " (commit " + narrow(id).substr(0, 8) + ")";
    }
    const char *kind = finding->kind == Z_FINDING_DAMAGE ? "damaged" : "left over";
    fprintf(stderr, "%s: %s: %s\n", name.c_str(), kind, text.c_str());
}

bool find_digest(DrawingDigest *digest, const void *summary, uint64_t length, void *) {
    const auto found = dxf::digest_in({static_cast<const char *>(summary), length});
    if (found) *digest = *found;
    return found.has_value();
}

} // namespace

VerifyCounts verify_project(Repository *repository, const std::string &name, bool quick) {
    std::string context = name;
    const VerifySpec spec{.parts = Z_VERIFY_ALL & ~uint32_t{Z_VERIFY_INDEX},
                          .quick = quick,
                          .notify = nullptr,
                          .found = tell,
                          .digest = find_digest,
                          .context = &context};
    VerifyCounts counts{};
    check(zVerify(&counts, repository, &spec), name);
    return counts;
}

} // namespace host
