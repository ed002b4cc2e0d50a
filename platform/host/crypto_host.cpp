// Host libcrypto, mapped on first use. The daemon needs one function of it, SHA256 (the seal of
// the impedance history), and only with a history-keeping configuration; linked at start, the
// library's relocations, symbol tables and relocated data would stay resident (about 1.4 MB
// on Debian 12) in every run. This SHA256 opens the system's libcrypto at its first call and
// forwards to the library's own SHA256; the device build links libcrypto as usual.
//
// Threads: the library is opened once (static initialisation); any thread may call.
#include <dlfcn.h>
#include <openssl/sha.h>

#include <initializer_list>

namespace {

using Sha256Fn = unsigned char* (*)(const unsigned char*, size_t, unsigned char*);

Sha256Fn LoadSha256() {
    for (const char* name : {"libcrypto.so.3", "libcrypto.so"}) {
        if (void* lib = dlopen(name, RTLD_NOW | RTLD_LOCAL)) {
            return reinterpret_cast<Sha256Fn>(dlsym(lib, "SHA256"));
        }
    }
    return nullptr;
}

}  // namespace

// As OpenSSL's: the digest of d[0..n) in md (32 bytes); null when the library is missing.
extern "C" unsigned char* SHA256(const unsigned char* d, size_t n, unsigned char* md) {
    static const Sha256Fn real = LoadSha256();
    return real != nullptr ? real(d, n, md) : nullptr;
}
