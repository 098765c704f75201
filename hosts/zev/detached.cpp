// What HEAD says is asked anew each time: git moves it, too.
#include "detached.hpp"

#include "refs.hpp"
#include "show.hpp"
#include "walks.hpp"

namespace host {

bool is_detached(const WorkingCopy &copy) { return current_branch(copy).empty(); }

std::string way_back(const WorkingCopy &copy) {
    std::vector<std::string> branches;
    each_reference(copy.repository(), [&](Reference *reference) {
        const std::string name = narrow(zReferenceName(reference));
        if (name.starts_with(kHeads)) branches.push_back(name.substr(kHeads.size()));
        return branches.size() < 2;
    });
    return branches.size() == 1 ? branches.front() : "BRANCH";
}

void tell_detached(Host &host, const WorkingCopy &copy, bool beside) {
    if (!is_detached(copy)) return;
    const OwnedCommit head = copy.head();
    const std::string text = "at " + short_id(zCommitId(head.get())) +
                             " and on no branch: \"zev switch " + way_back(copy) +
                             "\" goes back, \"zev switch --create NAME\" makes a branch of it";
    if (beside) return host.out.warn(text);
    host.out.line(text);
    host.out.record(Record("detached").set(u"commit", zCommitId(head.get())));
}

void require_branch(const WorkingCopy &copy) {
    if (!is_detached(copy)) return;
    throw Failed(kOther, "HEAD is on no branch, and what is committed there would be lost; \"zev "
                         "switch --create NAME\" makes a branch of it, and your changes come "
                         "along; \"zev switch " +
                             way_back(copy) + "\" goes back");
}

} // namespace host
