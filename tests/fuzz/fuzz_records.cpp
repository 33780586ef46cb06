// The phone's answers: the first two bytes choose the call and the exchange (status, transfer
// failure), the rest is the body, judged by the code every group API call runs (and read as a
// users reply).
#include "FuzzSupport.h"

#include "api/AnswerJudging.h"
#include "api/RecordDecoding.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <array>

namespace {

template <typename T> void describe(const APIResult<T>& result)
{
    // The description is what the user reads; building it must hold for any answer.
    FuzzSupport::check(result.isSuccess() || !result.error().description().isEmpty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    static constexpr std::array<int, 12> statuses { 200, 201, 204, 301, 400, 401, 403, 404, 409, 422, 500,
        503 };
    const uint8_t call = data[0] % 4;
    const uint8_t how = data[1];
    const QByteArray body(reinterpret_cast<const char*>(data + 2), qsizetype(size - 2));

    Exchange exchange;
    if (how % 16 < statuses.size())
        exchange.status = statuses[how % 16];
    if (how & 0x10)
        exchange.failure = QStringLiteral("The network connection was lost.");
    if (!(how & 0x20))
        exchange.body = body;

    switch (call) {
    case 0:
        describe(AnswerJudging::judgeRecord(exchange));
        break;
    case 1:
        describe(AnswerJudging::judgeGroupList(exchange));
        break;
    case 2:
        describe(AnswerJudging::judgeMemberList(exchange));
        break;
    default:
        describe(AnswerJudging::judgeNoContent(exchange));
        // The record decoders also meet values inside larger documents.
        const QJsonDocument document = QJsonDocument::fromJson(body);
        const QJsonValue value
            = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
        (void)RecordDecoding::group(value);
        (void)RecordDecoding::member(value);
        (void)RecordDecoding::createdOn(value);
        (void)RecordDecoding::usersBody(body);
        break;
    }
    return 0;
}
