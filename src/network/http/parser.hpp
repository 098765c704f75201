// A parser of one message after the other: the framing judges the raw bytes, http-parser takes the
// message apart, and what it finds goes to the delegates of the record that is being filled.
#pragma once

#include "network/http/framing.hpp"
#include "zev/http_header.h"

#include <http_parser.h>

namespace zev {

class MessageParser {
  public:
    MessageParser(bool request, const HttpLimits &limits) : framing_(request, limits) {
        http_parser_init(&parser_, request ? HTTP_REQUEST : HTTP_RESPONSE);
        parser_.data = this;
    }
    MessageParser(const MessageParser &) = delete;
    MessageParser &operator=(const MessageParser &) = delete;

    // For a new message; both are lent until it is complete. One that is `bare` answers a HEAD.
    void begin(void *target, const HttpDelegates *delegates, bool bare = false);
    // From here on `feed` takes no more than a head at once, so that its reader may choose who is
    // told of the body; that it is complete is told to him, too.
    void stop_at_heads() { stops_at_heads_ = true; }
    void hand_over(void *target, const HttpDelegates *delegates) {
        target_ = target;
        delegates_ = delegates;
    }

    // Takes what belongs to the message, at most all of `bytes`; what follows a complete one is
    // left. False, with the standard error 104 raised, when the message can't be taken; `fault`
    // then says what it deserves. May throw.
    bool feed(std::string_view bytes, size_t *taken);
    // The connection ended: completes a message that goes on until then. Whether it is complete.
    bool end();

    bool is_complete() const { return complete_; }
    int fault() const { return framing_.fault(); }
    const Framing &framing() const { return framing_; }

  private:
    struct Calls; // http-parser's callbacks
    bool execute(const char *bytes, size_t count);
    bool tell_url();
    bool tell_field();
    bool tell_head();
    bool tell_method();
    bool tell_status();

    Framing framing_;
    http_parser parser_{};
    const HttpDelegates *delegates_ = nullptr;
    void *target_ = nullptr;
    bool bare_ = false;
    bool stops_at_heads_ = false;
    bool complete_ = false;
    std::string url_, status_, name_, value_; // pieces joined
    bool has_value_ = false;                  // of the field at hand
    bool head_told_ = false;                  // fields behind it are trailers
};

} // namespace zev
