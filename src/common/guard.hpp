// Guards: what a C library or our own interface hands out, given back at scope's end.
#pragma once

#include "zev/str.h"

#include <cstdlib>
#include <memory>
#include <type_traits>
#include <utility>

namespace zev {

template <auto Fn> struct Free {
    template <class T> void operator()(T *pointer) const noexcept {
        Fn(const_cast<std::remove_const_t<T> *>(pointer));
    }
};
template <class T, auto Fn> using Owned = std::unique_ptr<T, Free<Fn>>;

template <class T> using Malloced = Owned<T, std::free>;
using Wide = Malloced<zwchar>;
using Narrow = Malloced<char>;

// Lends a guard as an out argument; what it held is given back first. The guard has the new one
// only after the whole statement: no `&&` behind the call may look into it.
template <class Guard> class Out {
  public:
    explicit Out(Guard &guard) : guard_(guard) { guard_.reset(); }
    Out(const Out &) = delete;
    Out &operator=(const Out &) = delete;
    ~Out() { guard_.reset(raw_); }
    operator typename Guard::pointer *() { return &raw_; }

  private:
    Guard &guard_;
    typename Guard::pointer raw_ = nullptr;
};
template <class Guard> Out<Guard> out(Guard &guard) { return Out<Guard>(guard); }

// Runs a piece of work at scope's end unless it was called off.
template <class F> class Finally {
  public:
    explicit Finally(F work) : work_(std::move(work)) {}
    Finally(const Finally &) = delete;
    Finally &operator=(const Finally &) = delete;
    ~Finally() {
        if (armed_) work_();
    }
    void cancel() { armed_ = false; }

  private:
    F work_;
    bool armed_ = true;
};

} // namespace zev
