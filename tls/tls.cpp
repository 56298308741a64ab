// RTSPTapUseTls: what connections through TLS are made by.
#include "rtsptap_tls.h"
#include "tls/stream.h"

#include <openssl/err.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

using namespace rtsptap_tls;

namespace {

void Release(void *made) {
    auto *const context = static_cast<Context *>(made);
    if (context == nullptr) return;
    SSL_CTX_free(context->ssl);
    BIO_meth_free(context->socket);
    std::free(context);
}

Context *Make() {
    auto *const context = static_cast<Context *>(std::malloc(sizeof(Context)));
    if (context == nullptr) return nullptr;
    *context = Context{};
    context->ssl = SSL_CTX_new(TLS_client_method());
    context->socket = MakeSocketMethod();
    if (context->ssl != nullptr && context->socket != nullptr) return context;
    Release(context);
    return nullptr;
}

bool IsSane(const RTSPTapTlsOptions &options) {
    const bool isVersion = options.leastVersion == 0 || options.leastVersion == 12 || options.leastVersion == 13;
    return isVersion && (options.isUnverified == 0 || options.isUnverified == 1) &&
           (options.serverName == nullptr || std::strlen(options.serverName) < sizeof Context::serverName);
}

bool IsDirectory(const char *path) {
    struct stat status = {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool TrustRoots(SSL_CTX *ssl, const RTSPTapTlsOptions &options) {
    if (options.rootFile == nullptr && options.rootDirectory == nullptr)
        return SSL_CTX_set_default_verify_paths(ssl) == 1;
    if (options.rootDirectory != nullptr && !IsDirectory(options.rootDirectory)) return false;
    return SSL_CTX_load_verify_locations(ssl, options.rootFile, options.rootDirectory) == 1;
}

bool UseCertificate(SSL_CTX *ssl, const RTSPTapTlsOptions &options) {
    if (options.certificateFile == nullptr) return options.keyFile == nullptr;
    const char *const key = options.keyFile != nullptr ? options.keyFile : options.certificateFile;
    const auto noPassword = [](char * /*buffer*/, int /*size*/, int /*writing*/, void * /*context*/) { return -1; };
    SSL_CTX_set_default_passwd_cb(ssl, noPassword); // else it asks on the terminal
    return SSL_CTX_use_certificate_chain_file(ssl, options.certificateFile) == 1 &&
           SSL_CTX_use_PrivateKey_file(ssl, key, SSL_FILETYPE_PEM) == 1 && SSL_CTX_check_private_key(ssl) == 1;
}

int32_t Configure(Context &context, const RTSPTapTlsOptions &options) {
    SSL_CTX *const ssl = context.ssl;
    context.verifies = options.isUnverified == 0;
    if (options.serverName != nullptr)
        (void)std::snprintf(context.serverName, sizeof context.serverName, "%s", options.serverName);
    SSL_CTX_set_min_proto_version(ssl, options.leastVersion == 13 ? TLS1_3_VERSION : TLS1_2_VERSION);
    SSL_CTX_set_options(ssl, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(ssl, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                              SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_verify(ssl, context.verifies ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(ssl),
                                X509_V_FLAG_PARTIAL_CHAIN); // a server's own may be trusted
    if (!TrustRoots(ssl, options)) return RTSPTAP_BAD_TLS_ROOTS;
    if (!UseCertificate(ssl, options)) return RTSPTAP_BAD_TLS_CERTIFICATE;
    return RTSP_SUCCESS;
}

} // namespace

int32_t RTSPTapUseTls(intptr_t clientHandle, const RTSPTapTlsOptions *options) {
    RTSPTapTlsOptions all = {};
    if (options != nullptr && options->recordSize < sizeof all) return RTSP_INVALID_ARGUMENT;
    if (options != nullptr) std::memcpy(&all, options, sizeof all);
    if (!IsSane(all)) return RTSPTAP_OUT_OF_RANGE;
    Context *const context = Make();
    if (context == nullptr) return RTSP_NO_MEMORY;
    RTSPTapByteStream table = kTable;
    table.release = Release;
    int32_t result = Configure(*context, all);
    if (result == RTSP_SUCCESS)
        result = RTSPTapSetByteStream(clientHandle, RTSPTAP_STREAM_OF_RTSPS, &table, context);
    if (result != RTSP_SUCCESS) Release(context);
    ERR_clear_error();
    return result;
}
