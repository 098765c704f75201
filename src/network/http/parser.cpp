// http-parser's callbacks, turned into the delegates' calls. A text may come in pieces: it is told
// when the next thing begins. An exception ends the parse as a failure: none crosses http-parser.
#include "network/http/parser.hpp"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/utf.hpp"
#include "zev/str.h"

#include <cassert>
#include <cerrno>
#include <utility>

namespace zev {

struct MessageParser::Calls {
    static MessageParser *self(http_parser *parser) {
        return static_cast<MessageParser *>(parser->data);
    }
    static int result(bool done) { return done ? 0 : -1; }
    static constexpr int kSkipBody = 1;

    // Runs one callback; no exception crosses http-parser's frames.
    template <class F> static int guard(http_parser *parser, F work) {
        try {
            return result(work(*self(parser)));
        } catch (...) {
            return fail_thrown(), -1;
        }
    }

    // Calls a delegate, if there is one.
    template <class Slot, class... Arguments>
    static bool tell(MessageParser &p, Slot slot, Arguments... arguments) {
        return !(p.delegates_->*slot) || (p.delegates_->*slot)(p.target_, arguments...);
    }

    static int begin(http_parser *parser) {
        return guard(parser, [](auto &p) { return tell(p, &HttpDelegates::begin); });
    }
    static int url(http_parser *parser, const char *at, size_t count) {
        return guard(parser, [&](auto &p) { return p.url_.append(at, count), true; });
    }
    static int status(http_parser *parser, const char *at, size_t count) {
        return guard(parser, [&](auto &p) { return p.status_.append(at, count), true; });
    }
    static int name(http_parser *parser, const char *at, size_t count) {
        return guard(parser, [&](auto &p) {
            return p.tell_url() && p.tell_field() && (p.name_.append(at, count), true);
        });
    }
    static int value(http_parser *parser, const char *at, size_t count) {
        return guard(parser, [&](auto &p) {
            p.has_value_ = true;
            return p.value_.append(at, count), true;
        });
    }
    // A length that stands in a head without a body, as in an answer to HEAD, is not waited for.
    static int head(http_parser *parser) {
        const int code = guard(parser, [](auto &p) { return p.tell_head(); });
        const bool bare = self(parser)->framing_.facts().body == HeadFacts::none;
        return code || !bare ? code : kSkipBody;
    }
    static int body(http_parser *parser, const char *at, size_t count) {
        return guard(parser, [&](auto &p) {
            return tell(p, &HttpDelegates::body, static_cast<const void *>(at), uint64_t{count});
        });
    }
    static int complete(http_parser *parser) {
        return guard(parser, [](auto &p) {
            if (p.framing_.facts().interim) return true; // the answer is still to come
            p.complete_ = true;
            return tell(p, &HttpDelegates::complete);
        });
    }
    static int chunk_begin(http_parser *parser) {
        return guard(parser, [](auto &p) { return tell(p, &HttpDelegates::chunkBegin); });
    }
    static int chunk_end(http_parser *parser) {
        return guard(parser, [](auto &p) { return tell(p, &HttpDelegates::chunkEnd); });
    }

    static constexpr http_parser_settings settings = {
        .on_message_begin = begin,
        .on_url = url,
        .on_status = status,
        .on_header_field = name,
        .on_header_value = value,
        .on_headers_complete = head,
        .on_body = body,
        .on_message_complete = complete,
        .on_chunk_header = chunk_begin,
        .on_chunk_complete = chunk_end,
    };
};

void MessageParser::begin(void *target, const HttpDelegates *delegates, bool bare) {
    assert(target && delegates);
    target_ = target;
    delegates_ = delegates;
    bare_ = bare;
    complete_ = false;
    framing_.reset(bare);
    http_parser_init(&parser_, static_cast<http_parser_type>(parser_.type));
    url_.clear();
    status_.clear();
    name_.clear();
    value_.clear();
    has_value_ = head_told_ = false;
}

// The fields after it may change what it says: the host.
bool MessageParser::tell_url() {
    if (url_.empty()) return true;
    return Calls::tell(*this, &HttpDelegates::url, to_wide(std::exchange(url_, {})).c_str());
}

// A field is whole when the next one, or the end of the head, begins. Trailers come when the head
// was told: they are dropped.
bool MessageParser::tell_field() {
    if (!has_value_) return true;
    has_value_ = false;
    const std::u16string name = to_wide(name_), value = to_wide(value_);
    name_.clear();
    value_.clear();
    return head_told_ || Calls::tell(*this, &HttpDelegates::field, name.c_str(), value.c_str());
}

bool MessageParser::tell_method() {
    const zwchar *name = zHttpMethodName(parser_.method);
    if (!name) return fail_os(EBADMSG);
    return Calls::tell(*this, &HttpDelegates::method, uint32_t{parser_.method}, name);
}

bool MessageParser::tell_status() {
    const auto code = static_cast<int32_t>(parser_.status_code);
    const std::u16string text = to_wide(status_);
    const zwchar *known = text.empty() ? zHttpStatusMessage(code) : text.c_str();
    if (!known) return fail_os(EBADMSG);
    return Calls::tell(*this, &HttpDelegates::status, code, known);
}

// An interim response is not told: the one behind it is the answer.
bool MessageParser::tell_head() {
    if (!tell_url() || !tell_field()) return false;
    head_told_ = true;
    if (parser_.type == HTTP_REQUEST) {
        if (!tell_method()) return false;
    } else if (framing_.facts().interim) {
        return true;
    } else if (!tell_status()) {
        return false;
    }
    const uint32_t version = parser_.http_minor == 1 ? Z_HTTP_1_1 : Z_HTTP_1_OTHER;
    return Calls::tell(*this, &HttpDelegates::version, version, zHttpVersionName(version)) &&
           Calls::tell(*this, &HttpDelegates::alive, http_should_keep_alive(&parser_) != 0) &&
           Calls::tell(*this, &HttpDelegates::headers);
}

bool MessageParser::execute(const char *bytes, size_t count) {
    if (!count) return true; // http-parser takes nothing for the end
    const size_t taken = http_parser_execute(&parser_, &Calls::settings, bytes, count);
    const auto code = static_cast<http_errno>(parser_.http_errno);
    if (taken == count || code == HPE_OK) return true;
    const bool ours = code < HPE_INVALID_EOF_STATE; // a callback of ours, which knows why
    const std::u16string why = ours ? zErrorReason() : u"";
    fail_os(EBADMSG, http_errno_description(code));
    if (!why.empty()) zSetErrorReason(u"%s", why.c_str());
    return false;
}

bool MessageParser::feed(std::string_view bytes, size_t *taken) {
    assert(delegates_);
    *taken = 0;
    while (*taken < bytes.size() && !complete_) {
        const std::string_view rest = bytes.substr(*taken);
        const bool in_head = !framing_.has_head();
        const size_t count = framing_.take(rest);
        *taken += count;
        if (framing_.fault()) return fail_os(EBADMSG);
        if (!framing_.has_head()) return true;
        const std::string &head = framing_.head();
        if (!(in_head ? execute(head.data(), head.size()) : execute(rest.data(), count)))
            return false;
        // An interim response is over with its head; what follows is another message.
        if (framing_.facts().interim) begin(target_, delegates_, bare_);
        if (framing_.is_complete() && !complete_) return fail_os(EBADMSG);
        if (in_head && stops_at_heads_) break;
    }
    return true;
}

bool MessageParser::end() {
    if (!complete_ && framing_.ends_with_connection())
        http_parser_execute(&parser_, &Calls::settings, nullptr, 0);
    return complete_;
}

} // namespace zev
