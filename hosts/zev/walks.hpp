// Walks: those of the library, with a function that may throw. The library's own callbacks must
// not: what is thrown ends the walk and comes out here.
#pragma once

#include "host.hpp"

#include <exception>

namespace host {

template <class F> struct Walk {
    F &visit;
    std::exception_ptr thrown{};

    // Gives `ended` where the function threw.
    template <class Result, class... Arguments>
    static Result step(void *self, Result ended, Arguments... arguments) {
        auto *walk = static_cast<Walk *>(self);
        try {
            return walk->visit(arguments...);
        } catch (...) {
            walk->thrown = std::current_exception();
            return ended;
        }
    }
    bool finish(bool done) const {
        if (thrown) std::rethrow_exception(thrown);
        return done;
    }
};

// `visit(Reference *)` gives false to end it. False for that, and where references can't be read.
template <class F> bool each_reference(Repository *repository, F visit) {
    Walk<F> walk{visit};
    return walk.finish(zReferenceForeach(
        repository,
        [](Reference *reference, void *self) { return Walk<F>::step(self, false, reference); },
        &walk));
}

// `visit(const IndexEntry *)`, of all stages. Throws where the index can't be read.
template <class F> void each_entry_of(Index *index, F visit) {
    const auto take = [&](const IndexEntry *entry) { return visit(entry), int32_t{0}; };
    Walk<decltype(take)> walk{take};
    check(walk.finish(zIndexWalk(
        index,
        [](const IndexEntry *entry, void *self) {
            return Walk<decltype(take)>::step(self, int32_t{-1}, entry);
        },
        &walk)));
}

} // namespace host
