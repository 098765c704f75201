// What HEAD says is asked anew each time: git moves it, too.
#include "detached.hpp"

#include "refs.hpp"
#include "remote_copy.hpp"
#include "show.hpp"
#include "walks.hpp"

namespace host {

bool is_detached(const WorkingCopy &copy) { return current_branch(copy).empty(); }

std::string way_back(const WorkingCopy &copy) {
    if (!origin_of(copy).empty())
        if (std::string followed = following_branch(copy); !followed.empty()) return followed;
    std::vector<std::string> branches;
    each_reference(copy.repository(), [&](Reference *reference) {
        const std::string name = narrow(zReferenceName(reference));
        if (name.starts_with(kHeads)) branches.push_back(name.substr(kHeads.size()));
        return branches.size() < 2;
    });
    return branches.size() == 1 ? branches.front() : "BRANCH";
}

std::string detached_text(const WorkingCopy &copy) {
    const bool is_followed = !origin_of(copy).empty(); // then nothing is sent from other branches
    return say(is_followed ? "at %s and on no branch: \"zev switch %s\" goes back"
                           : "at %s and on no branch: \"zev switch %s\" goes back, \"zev switch "
                             "--create NAME\" makes a branch of it",
               short_id(zCommitId(copy.head().get())), way_back(copy));
}

void tell_detached(Host &host, const WorkingCopy &copy, bool beside) {
    if (!is_detached(copy)) return;
    const std::string text = detached_text(copy);
    if (beside) return host.out.warn(text);
    host.out.line(text);
    host.out.record(Record("detached").set(u"commit", zCommitId(copy.head().get())));
}

void require_branch(const WorkingCopy &copy) {
    if (!is_detached(copy)) return;
    const std::string back = way_back(copy);
    if (!origin_of(copy).empty())
        throw Failed(kOther,
                     say("HEAD is on no branch, and nothing is sent from there; \"zev switch %s\" "
                         "goes back, \"zev reset REV\" then makes an old state a change of yours",
                         back));
    throw Failed(
        kOther, say("HEAD is on no branch, and what is committed there would be lost; \"zev switch "
                    "--create NAME\" makes a branch of it, and your changes come along; \"zev "
                    "switch %s\" goes back",
                    back));
}

} // namespace host
