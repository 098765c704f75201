// Pager: the program that shows long output a screen at a time.
#pragma once

#include <string>
#include <sys/types.h>

namespace host {

class Pager {
  public:
    // From now on stdout, and stderr where it is a terminal, go to the pager: $ZEV_PAGER, else
    // $PAGER, else less. None for an empty name, for `cat`, and where it can't be started.
    bool start();

    bool running() const { return process_ > 0; }

    // Ends the output, and waits until the user has seen it.
    void finish();

  private:
    pid_t process_ = 0;
    int errors_ = -1; // stderr as it was
};

} // namespace host
