#include "QtFuzz.h"
#include "backend/Records.h"

#include <QJsonDocument>

using namespace quellora;
using namespace quellora::fuzz;

/// A record that was read is written and read again without a change.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    const auto record = LoginResponse::decode(bytes(view(data, size)));
    if (!record) {
        require(!record.error().description.isEmpty());
        return 0;
    }
    const auto again = LoginResponse::decode(QJsonDocument(record->toJson()).toJson());
    require(again && *again == *record);
    return 0;
}
