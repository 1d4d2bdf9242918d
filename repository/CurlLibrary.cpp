#include "repository/CurlLibrary.h"

#include <dlfcn.h>

namespace {

CurlLibrary loadedLibrary()
{
    CurlLibrary library;
    // Nobody here uses GnuTLS, which the library brings along and which would test itself.
    qputenv("GNUTLS_NO_IMPLICIT_INIT", "1");
    void *const handle = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        library.fault = QString("libcurl cannot be loaded: %1").arg(QString::fromLocal8Bit(dlerror()));
        return library;
    }
#define CURL_FIND(function)                                                                                  \
    library.function = reinterpret_cast<decltype(library.function)>(dlsym(handle, "curl_" #function));       \
    if (library.function == nullptr) {                                                                       \
        library.fault = "libcurl has no curl_" #function;                                                    \
        return library;                                                                                      \
    }
    CURL_FUNCTIONS(CURL_FIND)
#undef CURL_FIND
    if (library.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
        library.fault = "libcurl could not be made ready";
    }
    return library;
}

} // namespace

const CurlLibrary &curl()
{
    static const CurlLibrary library = loadedLibrary();
    return library;
}
