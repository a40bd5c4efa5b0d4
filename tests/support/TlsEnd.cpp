#include "tests/support/TlsEnd.h"

#include <openssl/ssl.h>

#include <cerrno>

namespace support {

namespace {

std::shared_ptr<SSL_CTX> makeContext()
{
    OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    const std::shared_ptr<EVP_PKEY> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const std::shared_ptr<X509> certificate(X509_new(), X509_free);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 24L * 3600);
    X509_set_pubkey(certificate.get(), key.get());
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    return context;
}

}  // namespace

TlsEnd::TlsEnd(Tls newest)
{
    static const std::shared_ptr<SSL_CTX> context = makeContext();
    ssl.reset(SSL_new(context.get()), SSL_free);
    SSL_set_bio(ssl.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_max_proto_version(ssl.get(), newest == Tls::v12 ? TLS1_2_VERSION : TLS1_3_VERSION);
    SSL_set_accept_state(ssl.get());
}

std::string TlsEnd::receive(std::string_view cipherText)
{
    BIO_write(SSL_get_rbio(ssl.get()), cipherText.data(), static_cast<int>(cipherText.size()));
    std::string plainText;
    char bytes[16384];
    int count = 0;
    while ((count = SSL_read(ssl.get(), bytes, sizeof bytes)) > 0)  // takes the handshake on, too
        plainText.append(bytes, static_cast<std::size_t>(count));
    collect();
    return plainText;
}

long TlsEnd::send(std::string_view plainText)
{
    errno = EAGAIN;
    if (outgoing.size() > 1 << 20)
        return -1;
    const int count = SSL_write(ssl.get(), plainText.data(), static_cast<int>(plainText.size()));
    collect();
    return count;
}

void TlsEnd::closeNotify()
{
    SSL_shutdown(ssl.get());
    collect();
}

bool TlsEnd::isReady() const
{
    return SSL_is_init_finished(ssl.get()) == 1;
}

const char* TlsEnd::version() const
{
    return SSL_get_version(ssl.get());
}

void TlsEnd::collect()
{
    char bytes[16384];
    int count = 0;
    while ((count = BIO_read(SSL_get_wbio(ssl.get()), bytes, sizeof bytes)) > 0)
        outgoing.append(bytes, static_cast<std::size_t>(count));
}

}  // namespace support
