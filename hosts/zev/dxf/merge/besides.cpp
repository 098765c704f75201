// A project under a new key may be the same as before, so that where all keys differ their rows
// tell. Reference data lies in the manifests themselves.
#include "dxf/merge/besides.hpp"

namespace dxf::merging {

namespace {

template <class Value>
const Value &pick(const Value &base, const Value &ours, const Value &theirs, const char *refusal) {
    if (ours == theirs || theirs == base) return ours;
    if (ours != base) throw host::Failed(host::kOther, refusal);
    return theirs;
}

struct Project {
    RawKey key;
    std::string_view row; // empty unless it is needed
    bool operator==(const Project &other) const {
        return row.empty() || other.row.empty() ? key == other.key : row == other.row;
    }
};

RawKey merge_projects(const RawKey &base, const RawKey &ours, const RawKey &theirs, Rows &rows) {
    Project projects[] = {{base, {}}, {ours, {}}, {theirs, {}}};
    if (ours != base && theirs != base && ours != theirs) {
        rows.load({turned(base), turned(ours), turned(theirs)});
        for (Project &project : projects) project.row = rows[turned(project.key)];
    }
    const auto &[from, mine, other] = projects;
    return pick(from, mine, other, "both sides changed its VBA project").key;
}

} // namespace

Besides merge_besides(const Manifest &base, const Manifest &ours, const Manifest &theirs,
                      Rows &rows) {
    Besides merged;
    merged.vba = merge_projects(base.vba, ours.vba, theirs.vba, rows);
    merged.reference = pick(base.reference, ours.reference, theirs.reference,
                            "both sides changed its reference data");
    return merged;
}

} // namespace dxf::merging
