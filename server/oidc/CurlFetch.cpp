#include "oidc/CurlFetch.h"

#include <curl/curl.h>

#include <memory>

namespace quellora::server {
namespace {

constexpr long connectSeconds = 5;
constexpr long totalSeconds = 10;
constexpr std::size_t mostBytes = 1024U * 1024U;

std::size_t append(char *bytes, std::size_t size, std::size_t count, void *target)
{
    auto &text = *static_cast<std::string *>(target);
    if (text.size() + size * count > mostBytes)
        return 0;
    text.append(bytes, size * count);
    return size * count;
}

} // namespace

OidcFetch curlFetch()
{
    return [](const std::string &url, const std::optional<std::string> &form,
              const std::vector<std::pair<std::string, std::string>> &headers)
               -> tl::expected<std::string, std::string> {
        const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> transfer(curl_easy_init(),
                                                                           &curl_easy_cleanup);
        if (!transfer)
            return tl::make_unexpected(std::string("no transfer possible"));
        CURL *handle = transfer.get();
        std::string answer;
        curl_slist *first = curl_slist_append(nullptr, "Accept: application/json");
        for (const auto &[name, value] : headers)
            first = curl_slist_append(first, (name + ": " + value).c_str());
        const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> lines(
            first, &curl_slist_free_all);
        curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "https,http");
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, lines.get());
        curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connectSeconds);
        curl_easy_setopt(handle, CURLOPT_TIMEOUT, totalSeconds);
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &append);
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, &answer);
        if (form) {
            curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                             static_cast<curl_off_t>(form->size()));
            curl_easy_setopt(handle, CURLOPT_COPYPOSTFIELDS, form->c_str());
        }
        const CURLcode code = curl_easy_perform(handle);
        if (code == CURLE_WRITE_ERROR)
            return tl::make_unexpected(std::string("more than is accepted"));
        if (code != CURLE_OK)
            return tl::make_unexpected(std::string(curl_easy_strerror(code)));
        long status = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        if (status != 200)
            return tl::make_unexpected("HTTP " + std::to_string(status));
        return answer;
    };
}

} // namespace quellora::server
