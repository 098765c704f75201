// Contexts of TLS. Both ends speak 1.2 and later, without renegotiation and, inside, HTTP/1.1.
// Nothing is read from a terminal: a key that wants a password is refused.
#include "network/tcp/tls_context.hpp"

#include "common/failure.hpp"
#include "common/log_level.hpp"
#include "common/utf.hpp"
#include "zev/lang.h"
#include "zev/log.h"

#include <cstdlib>

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

namespace zev {

namespace {

constexpr unsigned char kProtocols[] = "\x08http/1.1"; // each behind its length
constexpr unsigned kProtocolsSize = sizeof kProtocols - 1;

std::string library_reason(unsigned long error) {
    if (ERR_SYSTEM_ERROR(error)) return strerror(ERR_GET_REASON(error));
    const char *text = ERR_reason_error_string(error);
    return text ? text : "error " + std::to_string(error);
}

// About a file, by the first of the errors that its reading left.
Failure fail_file(const zwchar *key, const std::string &file, Here at = {}) {
    const unsigned long error = ERR_peek_error();
    const std::u16string reason = to_wide(library_reason(error));
    ERR_clear_error();
    raise_net(ERR_GET_REASON(error),
              zI18nTextFormat(zI18nCurrentLang(), key, to_wide(file).c_str(), reason.c_str()));
    log_raised(kError, at, kFacilityNet);
    return {};
}

int no_password(char *, int, int, void *) { return -1; }

// A peer that offers nothing we know is served all the same: it may not mean it.
int choose_protocol(SSL *, const unsigned char **chosen, unsigned char *size,
                    const unsigned char *offered, unsigned offered_size, void *) {
    unsigned char *found = nullptr;
    if (SSL_select_next_proto(&found, size, kProtocols, kProtocolsSize, offered, offered_size) !=
        OPENSSL_NPN_NEGOTIATED)
        return SSL_TLSEXT_ERR_NOACK;
    *chosen = found;
    return SSL_TLSEXT_ERR_OK;
}

TlsContext new_context(const SSL_METHOD *method) {
    ERR_clear_error();
    TlsContext context(SSL_CTX_new(method));
    if (!context || !SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION))
        return fail_memory(), nullptr;
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);
    // Sessions are taken up by tickets, which the client keeps: they cost no memory here.
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_default_passwd_cb(context.get(), no_password);
    return context;
}

bool is_address(const std::string &host) {
    in6_addr any;
    return inet_pton(AF_INET, host.c_str(), &any) == 1 ||
           inet_pton(AF_INET6, host.c_str(), &any) == 1;
}

} // namespace

TlsContext tls_client_context() {
    TlsContext context = new_context(TLS_client_method());
    if (!context) return nullptr;
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_set_alpn_protos(context.get(), kProtocols, kProtocolsSize) != 0)
        return fail_memory(), nullptr;
    SSL_CTX_set_default_verify_paths(context.get()); // a machine may have none
    const char *file = getenv("ZEV_CA_FILE");
    ERR_clear_error();
    if (file && *file && !SSL_CTX_load_verify_file(context.get(), file))
        return fail_file(u"net.eTlsAuthorities_s_s", file), nullptr;
    return context;
}

TlsContext tls_server_context(const zwchar *certificate, const zwchar *key) {
    TlsContext context = new_context(TLS_server_method());
    if (!context) return nullptr;
    SSL_CTX_set_options(context.get(), SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_alpn_select_cb(context.get(), choose_protocol, nullptr);
    SSL_CTX_set_num_tickets(context.get(), 1); // a client has one connection
    const std::string chain = to_utf8(certificate), secret = to_utf8(key);
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(context.get(), chain.c_str()) != 1)
        return fail_file(u"net.eTlsCertificate_s_s", chain), nullptr;
    if (SSL_CTX_use_PrivateKey_file(context.get(), secret.c_str(), SSL_FILETYPE_PEM) != 1)
        return fail_file(u"net.eTlsKey_s_s", secret), nullptr;
    if (SSL_CTX_check_private_key(context.get()) != 1)
        return fail_file(u"net.eTlsKey_s_s", secret), nullptr;
    return context;
}

// A name's root, the dot at its end, is in no certificate.
bool tls_expect(SSL *session, const std::string &host) {
    X509_VERIFY_PARAM *param = SSL_get0_param(session);
    if (is_address(host)) return X509_VERIFY_PARAM_set1_ip_asc(param, host.c_str()) == 1;
    std::string name = host;
    if (name.ends_with('.')) name.pop_back();
    if (name.empty()) return false;
    X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return X509_VERIFY_PARAM_set1_host(param, name.c_str(), name.size()) == 1 &&
           SSL_set_tlsext_host_name(session, name.c_str()) == 1;
}

TlsReason tls_reason(const SSL *session) {
    const unsigned long error = ERR_peek_error();
    ERR_clear_error();
    const long verified = session ? SSL_get_verify_result(session) : X509_V_OK;
    if (verified != X509_V_OK)
        return {static_cast<int>(verified), X509_verify_cert_error_string(verified)};
    return {ERR_GET_REASON(error), library_reason(error)};
}

} // namespace zev
