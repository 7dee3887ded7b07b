#include "QtFuzz.h"
#include "backend/OAuthCallbackListener.h"

using namespace quellora;
using namespace quellora::fuzz;

/// The input as what a browser sends to the sign-in's listener.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    const QByteArray request = bytes(view(data, size));
    const auto token = OAuthCallbackListener::tokenFrom(request);
    // Only the request line counts.
    require(OAuthCallbackListener::tokenFrom(request + "\r\nHost: 127.0.0.1\r\n\r\n") == token ||
            !request.contains("\r\n"));
    if (token)
        require(request.contains(' ') && request.contains('?') && request.contains('='));
    return 0;
}
