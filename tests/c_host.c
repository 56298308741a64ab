/* A host process in C99 that has functions of its own under names the library exports, and its own digest.
 * The library must go on calling its own; only the digest is the host's to supply. */
#include "rtsptap.h"

#include <stdio.h>
#include <stdlib.h>

static int ForeignCall(void) {
    fputs("the library called a function of the host\n", stderr);
    abort();
}

int MutexInit(pthread_mutex_t *mutex) { return (void)mutex, ForeignCall(); }
int MutexLock(pthread_mutex_t *mutex) { return (void)mutex, ForeignCall(); }
void CloseSock(int fd) { (void)fd, ForeignCall(); }

int GenerateDigestResponse(const char *nonce, const char *cnonce, const char *username, const char *realm,
                           const char *password, const char *algorithm, const char *nonceCount, const char *method,
                           const char *qop, const char *uri, char *response) {
    (void)nonce, (void)cnonce, (void)username, (void)realm, (void)password, (void)algorithm;
    (void)nonceCount, (void)method, (void)qop, (void)uri;
    response[0] = '\0';
    return 0;
}

int main(void) {
    const intptr_t client = RTSPClientCreate();
    if (ValidateRTSPClientHandle(client) != 0) return 1;
    if (CloseServerSock(-1) != 0) return 2;
    return RTSPClientDestroy(client) == 0 ? 0 : 3;
}
