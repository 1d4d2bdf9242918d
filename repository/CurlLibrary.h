#pragma once

#include <QString>

#include <curl/curl.h>

/// The functions of libcurl that the service uses, by their names without "curl_".
#define CURL_FUNCTIONS(use)                                                                                  \
    use(easy_cleanup) use(easy_getinfo) use(easy_init) use(easy_perform) use(easy_setopt) use(easy_strerror) \
        use(global_init) use(multi_add_handle) use(multi_cleanup) use(multi_info_read) use(multi_init)       \
            use(multi_perform) use(multi_poll) use(multi_remove_handle) use(multi_setopt) use(share_cleanup) \
                use(share_init) use(share_setopt) use(slist_append) use(slist_free_all)

/// libcurl, loaded when it is used first. With all that a distribution's build of it brings along it takes
/// megabytes and milliseconds, which a device whose repository is a directory need not spend.
struct CurlLibrary
{
// A declaration's name takes no parentheses. NOLINTNEXTLINE(bugprone-macro-parentheses)
#define CURL_DECLARE(name) decltype(&curl_##name) name = nullptr;
    CURL_FUNCTIONS(CURL_DECLARE)
#undef CURL_DECLARE
    QString fault; ///< why it cannot be used; empty when it can
};

/// The library. The first call has to be made in the main thread.
const CurlLibrary &curl();
