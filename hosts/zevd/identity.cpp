// What an administrator gets wrong with a certificate: the file, its key, the order of the chain,
// its time, its names. All of it is told, not the first alone.
#include "identity.hpp"

#include "host.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <arpa/inet.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

namespace host {

namespace {

using OwnedBio = Owned<BIO, BIO_free_all>;
using OwnedX509 = Owned<X509, X509_free>;
using OwnedKey = Owned<EVP_PKEY, EVP_PKEY_free>;
using OwnedNames = Owned<GENERAL_NAMES, GENERAL_NAMES_free>;

constexpr int kSoon = 14; // days before its end in which a certificate should be replaced

std::string date_of(const ASN1_TIME *time) {
    tm parts{};
    char text[32] = "an unknown day";
    if (ASN1_TIME_to_tm(time, &parts)) strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

std::string text_of(const ASN1_STRING *value) {
    return {reinterpret_cast<const char *>(ASN1_STRING_get0_data(value)),
            static_cast<size_t>(ASN1_STRING_length(value))};
}

std::string address_of(const ASN1_STRING *value) {
    char text[INET6_ADDRSTRLEN] = "?";
    const int family = ASN1_STRING_length(value) == 4 ? AF_INET : AF_INET6;
    inet_ntop(family, ASN1_STRING_get0_data(value), text, sizeof text);
    return text;
}

// Names and addresses that clients may call it by.
std::string names_of(X509 *certificate) {
    const OwnedNames names(static_cast<GENERAL_NAMES *>(
        X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    std::string all;
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), i);
        std::string one;
        if (name->type == GEN_DNS) one = text_of(name->d.dNSName);
        if (name->type == GEN_IPADD) one = address_of(name->d.iPAddress);
        if (!one.empty()) all += (all.empty() ? "" : ", ") + one;
    }
    return all;
}

std::vector<OwnedX509> read_chain(const std::string &file, std::vector<std::string> &problems) {
    std::vector<OwnedX509> chain;
    errno = 0;
    const OwnedBio bio(BIO_new_file(file.c_str(), "r"));
    if (!bio) return problems.push_back(file + ": " + strerror(errno)), std::move(chain);
    while (X509 *one = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr))
        chain.emplace_back(one);
    if (chain.empty()) problems.push_back(file + ": holds no certificate in PEM");
    return chain;
}

void check_time(const X509 *certificate, const std::string &what, Identity &out) {
    const ASN1_TIME *from = X509_get0_notBefore(certificate),
                    *until = X509_get0_notAfter(certificate);
    time_t soon = time(nullptr) + kSoon * 24 * 3600;
    if (X509_cmp_current_time(from) > 0) {
        out.problems.push_back(what + " is not valid before " + date_of(from));
    } else if (X509_cmp_current_time(until) < 0) {
        out.problems.push_back(what + " has expired on " + date_of(until));
    } else if (X509_cmp_time(until, &soon) < 0) {
        out.warnings.push_back(what + " expires on " + date_of(until));
    }
}

// Each behind the one that it vouches for: clients need not sort them.
void check_chain(const std::vector<OwnedX509> &chain, const std::string &file, Identity &out) {
    for (size_t i = 0; i < chain.size(); ++i) {
        const std::string what = file + ": certificate " + std::to_string(i + 1);
        check_time(chain[i].get(), what, out);
        if (i && X509_check_issued(chain[i].get(), chain[i - 1].get()) != X509_V_OK)
            out.problems.push_back(what + " is not that of who issued the one before it");
    }
}

int no_password(char *, int, int, void *asked) {
    *static_cast<bool *>(asked) = true;
    return -1;
}

// Whoever can read the key can be the service.
void check_mode(const std::string &file, Identity &out) {
    struct stat status;
    if (stat(file.c_str(), &status) != 0) return;
    if (status.st_mode & (S_IRWXO | S_IWGRP))
        out.problems.push_back(file + ": is open to others; chmod 600 makes it its user's alone");
}

void check_key(X509 *certificate, const std::string &file, Identity &out) {
    errno = 0;
    const OwnedBio bio(BIO_new_file(file.c_str(), "r"));
    if (!bio) return out.problems.push_back(file + ": " + strerror(errno));
    check_mode(file, out);
    bool asked = false;
    const OwnedKey key(PEM_read_bio_PrivateKey(bio.get(), nullptr, no_password, &asked));
    if (!key)
        return out.problems.push_back(file + (asked ? ": wants a password, which nobody gives"
                                                    : ": holds no private key in PEM"));
    if (certificate && X509_check_private_key(certificate, key.get()) != 1)
        out.problems.push_back(file + ": is not the key of the certificate");
}

} // namespace

Identity look_at_identity(const std::string &certificate, const std::string &key) {
    Identity out;
    const std::vector<OwnedX509> chain = read_chain(certificate, out.problems);
    X509 *own = chain.empty() ? nullptr : chain.front().get();
    check_key(own, key, out);
    if (!own) return out;
    check_chain(chain, certificate, out);
    const std::string names = names_of(own);
    if (names.empty())
        out.problems.push_back(certificate + ": names no host (subjectAltName), clients refuse it");
    out.told =
        "for " + (names.empty() ? "nobody" : names) + ", until " + date_of(X509_get0_notAfter(own));
    return out;
}

} // namespace host
