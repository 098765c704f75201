// The body of a request while it comes: decoded as it arrives, a bounded step at a time, so that
// neither a large body nor a small one that inflates to a large one holds up other connections.
#pragma once

#include "zev/http_request.h"
#include "zev/http_response.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <zlib.h>

namespace zev {

// What a service makes of a request from the end of its head on, until it is answered.
struct Exchange {
    Exchange() = default;
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;
    virtual ~Exchange() { zHttpResponseFree(refusal); }

    HttpResponse *refusal =
        nullptr;       // the answer, whatever the body may be; owned until it is taken
    uint64_t most = 0; // bytes that the decoded body may have

    enum class Taken {
        no,    // it joins the request's own body
        yes,   // and more is taken
        enough // the answer is known by now
    };
    // Asked for each piece of the decoded body. Once one was taken, so are all others.
    virtual Taken take(std::string_view) { return Taken::no; }
    // The rest of the request comes later; until then others are served, who may change anything.
    virtual void wait() {}
};

// Undoes "gzip" or "deflate", with as much input at a time as there is.
class Inflater {
  public:
    Inflater() = default;
    ~Inflater();
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

    bool begin(const zwchar *encoding); // false for an unknown one
    // Takes from the front of `in`, fills up to `size` bytes. False for what is damaged, and for
    // bytes behind the end.
    bool step(std::string_view &in, char *out, size_t size, size_t *made);
    bool ended() const { return ended_; }

  private:
    z_stream state_{};
    bool ready_ = false, ended_ = false;
};

// Bytes that travel, in; what they stand for, to the exchange or to the request's body.
class BodyIntake {
  public:
    BodyIntake(HttpRequest *request, Exchange *exchange) : request_(request), exchange_(exchange) {}

    // Encoded bytes are kept until `step` takes them; others are taken at once. False when they
    // can't be stored.
    bool take(std::string_view bytes);
    // Decodes one block, of as many bytes as the transport reads at once. False as above.
    bool step();
    // No more bytes come. False as above.
    bool end();

    bool has_more() const { return !waiting_.empty() || full_; }
    bool streams() const { return streams_; } // the exchange takes it
    bool is_enough() const { return enough_; }
    int fault() const { return fault_; } // 0, or what the request is to be answered with

  private:
    bool begin();
    bool put(std::string_view bytes);

    HttpRequest *request_;
    Exchange *exchange_; // lent
    std::unique_ptr<Inflater> inflater_;
    std::string waiting_; // encoded
    uint64_t put_ = 0;    // bytes, decoded
    bool begun_ = false, full_ = false, streams_ = false, enough_ = false;
    int fault_ = 0;
};

} // namespace zev
