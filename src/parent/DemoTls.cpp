#include "parent/DemoTls.h"

#include "common/errors.h"
#include "io/Tls.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace parent {

namespace {

constexpr long lifetime = 24L * 60 * 60;  // of a certificate, in seconds, before now and after

template <auto free>
struct FreeWith {
    template <class T>
    void operator()(T* object) const
    {
        free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;

void require(bool done, const char* what)
{
    if (done)
        return;
    const char* const reason = ERR_reason_error_string(ERR_get_error());
    throw error::ESystemError(std::string("a service of the demo can't ") + what + ": " +
                              (reason == nullptr ? "unknown reason" : reason));
}

Certificate makeCertificate(EVP_PKEY* key)
{
    Certificate certificate(X509_new());
    X509* const x509 = certificate.get();
    const unsigned char name[] = "localhost";
    require(x509 != nullptr && X509_set_version(x509, X509_VERSION_3) == 1 &&
                ASN1_INTEGER_set(X509_get_serialNumber(x509), 1) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(x509), -lifetime) != nullptr &&
                X509_gmtime_adj(X509_getm_notAfter(x509), lifetime) != nullptr &&
                X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_ASC, name,
                                           -1, -1, 0) == 1 &&
                X509_set_issuer_name(x509, X509_get_subject_name(x509)) == 1 &&
                X509_set_pubkey(x509, key) == 1 && X509_sign(x509, key, EVP_sha256()) != 0,
            "make a certificate");
    return certificate;
}

}  // namespace

DemoTlsIdentity::DemoTlsIdentity()
{
    io::loadOpenSsl();
    ERR_clear_error();
    const Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "make a key");
    const Certificate certificate = makeCertificate(key.get());
    owned.reset(SSL_CTX_new(TLS_server_method()));
    require(owned != nullptr && SSL_CTX_use_certificate(owned.get(), certificate.get()) == 1 &&
                SSL_CTX_use_PrivateKey(owned.get(), key.get()) == 1,
            "set up TLS");
}

void DemoTlsIdentity::Free::operator()(ssl_ctx_st* context) const
{
    SSL_CTX_free(context);
}

void DemoTls::Free::operator()(ssl_st* connection) const
{
    SSL_free(connection);
}

DemoTls::DemoTls(const DemoTlsIdentity& identity)
    : ssl(SSL_new(identity.context())),
      fromNetwork(BIO_new(BIO_s_mem())),
      toNetwork(BIO_new(BIO_s_mem()))
{
    if (ssl == nullptr || fromNetwork == nullptr || toNetwork == nullptr) {
        BIO_free(fromNetwork);
        BIO_free(toNetwork);
        require(false, "take a TLS connection");
    }
    SSL_set_bio(ssl.get(), fromNetwork, toNetwork);
    SSL_set_accept_state(ssl.get());
}

bool DemoTls::take(std::string_view bytes, std::string* plain)
{
    // The queue of errors is shared by all connections, and what lies in it would be taken for an
    // error of this one.
    ERR_clear_error();
    if (BIO_write(fromNetwork, bytes.data(), static_cast<int>(bytes.size())) !=
        static_cast<int>(bytes.size()))
        return false;
    char buffer[4096];
    int count = 0;
    while ((count = SSL_read(ssl.get(), buffer, sizeof buffer)) > 0)
        plain->append(buffer, static_cast<std::size_t>(count));
    return SSL_get_error(ssl.get(), count) == SSL_ERROR_WANT_READ;
}

bool DemoTls::established() const
{
    return SSL_is_init_finished(ssl.get()) == 1;
}

void DemoTls::say(std::string_view plain)
{
    ERR_clear_error();
    std::size_t written = 0;
    require(plain.empty() || SSL_write_ex(ssl.get(), plain.data(), plain.size(), &written) == 1,
            "speak TLS");
}

void DemoTls::end()
{
    // Gives 0, for the peer has not ended its side, and needs not to.
    SSL_shutdown(ssl.get());
}

void DemoTls::takeOutput(std::string* bytes)
{
    char buffer[4096];
    int count = 0;
    while ((count = BIO_read(toNetwork, buffer, sizeof buffer)) > 0)
        bytes->append(buffer, static_cast<std::size_t>(count));
}

}  // namespace parent
