// Notify: what the library reports during an operation, handed to Output; the user's break; and
// questions, put to the user on the terminal or answered by an option.
#pragma once

#include "output.hpp"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace host {

// From here on the first Ctrl-C asks the operation to stop; a second one ends the process.
void catch_break();
bool broken();

// What answers questions in place of the user, for scripts.
struct Answers {
    bool yes = false;                 // the first button, which agrees
    bool no = false;                  // none
    std::vector<std::string> buttons; // the first of these that the question has, by number or text
};

// What an operation told by the way: the library's result alone doesn't always say it.
struct Outcome {
    uint64_t done = 0;   // files that were handled
    uint64_t listed = 0; // of these, since an operation within was done
    uint64_t failed = 0;
    uint64_t skipped = 0;
    uint64_t unauthorized = 0; // that the server would not have changed
    bool aborted = false;
    bool unanswered = false; // a question that nobody could answer
    bool declined = false;   // one that the user answered by the button that leaves all as it is
};

// All eleven callbacks; they say what comes through `output`, which outlives them.
class HostNotify : public Notify {
  public:
    HostNotify(Output &output, Answers answers);

    // Since the start, or since the last forget().
    const Outcome &outcome() const { return outcome_; }
    void forget() const { outcome_ = {}; }

    // What stands behind each text of progress; null for nothing. It must not throw.
    void set_progress_tail(std::function<std::string()> tail) const { tail_ = std::move(tail); }

    // While they are held, a drawing in conflict is told in text when they are let go. Whoever
    // tells of one in the meantime, or settles it, drops it.
    void hold_drawings() const { holds_drawings_ = true; }
    void drop_drawing(const std::string &path) const { std::erase(held_, path); }
    void let_drawings_go() const;

    // What the library calls reverted comes back out of the trash from here on.
    void from_trash() const { from_trash_ = true; }

  private:
    static const HostNotify &of(const Notify *table);
    void on_action(const zwchar *word, const zwchar *text) const;
    void on_end(const char *result, const zwchar *text) const;
    int32_t on_dialog(const TaskDialog *dialog) const;
    int32_t answer(const TaskDialog *dialog) const;

    Output &output_;
    Answers answers_;
    mutable Outcome outcome_;
    mutable std::set<std::string> warned_; // each is told once: a verb looks several times
    mutable std::function<std::string()> tail_;
    mutable bool from_trash_ = false;
    mutable bool holds_drawings_ = false;
    mutable std::vector<std::string> held_; // paths
    mutable std::string last_question_;     // and how often it came in a row
    mutable unsigned repeats_ = 0;
};

// For an operation behind which drawings in conflict may come together by themselves.
class HeldDrawings {
  public:
    explicit HeldDrawings(const HostNotify *notify) : notify_(notify) { notify->hold_drawings(); }
    ~HeldDrawings() {
        try {
            notify_->let_drawings_go();
        } catch (...) { // nobody reads it any more
        }
    }
    HeldDrawings(const HeldDrawings &) = delete;
    HeldDrawings &operator=(const HeldDrawings &) = delete;

  private:
    const HostNotify *notify_;
};

// The word that tells what became of a file, as wide as all of these words need it; and the one of
// a file that is in conflict, in its colour.
std::string action_column(const std::string &word);
std::string conflict_column(const Output &output);

// A question of the host's own, in texts that the catalogue knows or that were said already. The
// buttons have the ids 1, 2, ...; the first one agrees, the last one leaves all as it is.
struct Question {
    const char *id; // by which scripts tell questions apart
    std::string title;
    std::string instruction;
    std::string content;
    std::vector<std::string> buttons;
};

// The id of the button that was chosen, -1 for none.
int32_t ask(const Notify *notify, const Question &question);

// Goes on if the first button was chosen. Else throws what ends the verb as cancelled, `otherwise`
// saying what stays; where nobody could answer, with the option that does.
void require_yes(const HostNotify *notify, const Question &question, const std::string &otherwise,
                 const std::string &option = "--yes says that it is meant");

} // namespace host
