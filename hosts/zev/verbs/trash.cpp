// trash: the verbs below it look through what was taken out of the work directory.

#include "verb.hpp"

namespace host {

namespace {

Work declare(Command &verb) {
    verb.description("Look through what was taken out of the work directory, bring it back");
    verb.require_command();
    verb.footer("Examples:\n  zev trash list\n  zev trash find door\n"
                "  zev trash restore plan.dwx\n  zev trash purge --older 90");
    return {};
}

} // namespace

extern const Verb kTrashVerb{"trash", Group::rescue, Nature::plain, declare};

} // namespace host
