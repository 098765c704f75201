// Where a message begins, where its head and its body end: told from the raw bytes, strictly, since
// two ends that read one message differently can be played against each other.
//
// What is refused: a name or value with control bytes, a blank in a name or before its colon, a
// folded line, a line that ends in anything but CR LF, versions other than 1.0 and 1.1, two of a
// field that may be there once, a length beside a chunked body, a chunked body before 1.1 or under
// another coding, a chunk that is longer or shorter than it says.
#pragma once

#include "common/limits.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace zev {

// Of messages, and what a server takes beyond them; each can be set for one.
struct HttpLimits {
    uint64_t head = limits::http_head;               // bytes of a head; 431
    uint64_t fields = limits::http_fields;           // of a head; 431
    uint64_t target = limits::http_target;           // bytes of a request's target; 414
    uint64_t body = limits::http_body;               // bytes of a body as it travels; 413
    uint64_t json = limits::http_json;               // of a decoded body that is JSON; 413
    uint64_t nodes = limits::http_nodes;             // of its tree; 413
    uint64_t object = limits::object;                // bytes of one object's contents; 413
    uint64_t inflated = limits::http_inflated;       // of any other decoded body; 413
    uint64_t pack = limits::sent_objects;            // objects of a pack; 413
    uint64_t row_key = limits::row_key;              // bytes of a row's key; 413
    uint64_t row_value = limits::row_value;          // and of its value; 413
    uint64_t connections = limits::http_connections; // open at once
    // Whoever is slower is cut: seconds for a head, bytes of a body a second after a while.
    uint64_t head_time = limits::http_head_time / 1'000'000'000;
    uint64_t rate = limits::http_body_rate;
};
inline constexpr HttpLimits kHttpLimits;

// What a head says of the body behind it.
struct HeadFacts {
    enum Body { none, sized, chunked, until_close };
    Body body = none;
    uint64_t length = 0;
    bool expects = false; // 100-continue before the body is sent
    bool upgrade = false; // to another protocol
    bool interim = false; // a response of 1xx, with another one behind it
};

// 0 when the head may pass, else the status that it deserves; 400 for what is no head. The head
// ends with its empty line.
int check_head(std::string_view head, bool request, const HttpLimits &limits, HeadFacts *facts);

class Framing {
  public:
    Framing(bool request, const HttpLimits &limits) : request_(request), limits_(limits) {}

    // Takes what belongs to the message at hand from the front of `bytes` and says how much. What
    // it took is in `head()` once that is whole, or a piece of the body, framing included.
    size_t take(std::string_view bytes);

    const std::string &head() const { return head_; }
    const HeadFacts &facts() const { return facts_; }
    bool has_head() const { return state_ > State::head; } // whole and accepted
    bool has_begun() const { return !head_.empty(); }
    // Nothing of a body came that the head promises.
    bool awaits_body() const {
        return state_ == State::sized ? left_ == facts_.length
                                      : state_ == State::chunk_size && !digits_ && !body_;
    }
    bool is_complete() const { return state_ == State::done; }
    bool ends_with_connection() const { return state_ == State::open; }
    int fault() const { return fault_; } // 0, or the status that the message deserves
    // For the next message; one that is `bare` has no body, whatever its head says: it answers a
    // HEAD.
    void reset(bool bare = false);

  private:
    enum class State {
        head,
        sized,
        chunk_size,
        chunk_extension,
        chunk_size_end,
        chunk_data,
        chunk_data_cr,
        chunk_data_lf,
        trailer,
        open, // until the connection ends
        done
    };

    size_t take_head(std::string_view bytes);
    size_t take_chunked(std::string_view bytes);
    bool step(char byte);
    bool add_digit(char byte);
    bool end_chunk_size();
    bool end_trailer_line(char byte);
    void begin_body();
    bool refuse(int status);

    bool request_;
    bool bare_ = false;
    HttpLimits limits_;
    State state_ = State::head;
    std::string head_;
    HeadFacts facts_;
    uint64_t left_ = 0;      // of the body, or of the chunk
    uint64_t body_ = 0;      // of a chunked body so far
    uint32_t digits_ = 0;    // of a chunk's size; bytes of an extension or of the trailers
    uint32_t line_ = 0;      // bytes of the trailer's line
    bool ends_line_ = false; // a CR in a trailer waits for its LF
    bool skipped_ = false;   // an empty line ahead of the head
    int fault_ = 0;
};

} // namespace zev
