// Notify: what the library reports during an operation, handed to Output; and the user's break.
#pragma once

#include "output.hpp"

namespace host {

// From here on the first Ctrl-C asks the operation to stop; a second one ends the process.
void catch_break();
bool broken();

// A table of callbacks that say what comes through `output`, which outlives it.
class HostNotify : public Notify {
  public:
    explicit HostNotify(Output &output);

  private:
    static Output &output(const Notify *table);
    static void on_action(const Notify *table, const zwchar *word, const zwchar *text);

    Output &output_;
};

} // namespace host
