#pragma once

#include "api/APIResult.h"
#include "api/RecordDecoding.h"

#include <QByteArray>
#include <QString>

#include <optional>

// How an answer of the group API becomes a result, without sockets.
struct Exchange
{
    std::optional<int> status; // absent when no HTTP answer arrived
    std::optional<QByteArray> body; // absent when none arrived
    std::optional<QString> failure; // the transfer's failure, absent when it completed
};

namespace AnswerJudging {

// A failed exchange turned into an APIError by its status, message and failure.
APIError mapFailure(
    std::optional<int> status, const std::optional<QByteArray>& body, const std::optional<QString>& failure);

// True for failures that come from reading the body rather than from the network.
bool isDecodingFailure(const QString& description);

APIResult<GroupPtr> judgeRecord(const Exchange& exchange);
APIResult<QList<GroupPtr>> judgeGroupList(const Exchange& exchange);
APIResult<QList<GroupMemberModel>> judgeMemberList(const Exchange& exchange);
APIResult<NoContent> judgeNoContent(const Exchange& exchange);

} // namespace AnswerJudging
