#pragma once

#include "api/APIError.h"

#include <variant>

// What one API call ends in: a value or an APIError.
template <typename T> class APIResult
{
public:
    APIResult(T value)
        : m_value(std::move(value))
    {
    }
    APIResult(APIError error)
        : m_value(std::move(error))
    {
    }

    bool isSuccess() const { return std::holds_alternative<T>(m_value); }
    const T& value() const { return std::get<T>(m_value); }
    const APIError& error() const { return std::get<APIError>(m_value); }

private:
    std::variant<T, APIError> m_value;
};

// The success of a call that answers nothing.
struct NoContent
{
};
