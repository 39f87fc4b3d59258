#pragma once

#include <string>
#include <utility>
#include <variant>

namespace lumenar::base {

/// What kind of failure an operation met; the message says the rest.
enum class ErrorCode
{
    NotFound,     ///< A file, stream or element does not exist.
    Io,           ///< The system refused a read, write or open.
    BadData,      ///< The input is not what it claims to be.
    Truncated,    ///< The input ends before a field it declares.
    TooLarge,     ///< A declared size is beyond our caps.
    Unsupported,  ///< Valid input of a kind we do not handle.
    InvalidInput, ///< A caller passed an argument outside the contract.
};

/// A failure: returned, never thrown. Messages start lower-case and name the value and the place.
struct Error
{
    ErrorCode code;
    std::string message;
};

/// Holds a T or an Error.
template <typename T> class [[nodiscard]] Result
{
public:
    Result(T value) : state_(std::move(value)) {}
    Result(Error error) : state_(std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }

    T& value() & { return std::get<0>(state_); }
    const T& value() const& { return std::get<0>(state_); }
    T&& value() && { return std::get<0>(std::move(state_)); }
    const Error& error() const { return std::get<1>(state_); }

    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

private:
    std::variant<T, Error> state_;
};

/// Success or an Error.
template <> class [[nodiscard]] Result<void>
{
public:
    Result() = default;
    Result(Error error) : error_(std::move(error)), ok_(false) {}

    bool ok() const { return ok_; }
    explicit operator bool() const { return ok_; }
    const Error& error() const { return error_; }

private:
    Error error_{ErrorCode::BadData, {}};
    bool ok_ = true;
};

using Status = Result<void>;

namespace detail {
template <typename T> T TakeValue(Result<T>&& r)
{
    return std::move(r).value();
}
inline void TakeValue(Result<void>&&)
{
}
} // namespace detail

} // namespace lumenar::base

/// Evaluates a Result; on failure returns its Error from the enclosing function, otherwise yields the value.
#define LUM_TRY(expr)                                                                                        \
    ({                                                                                                       \
        auto lumTryResult_ = (expr);                                                                         \
        if (!lumTryResult_.ok())                                                                             \
            return lumTryResult_.error();                                                                    \
        ::lumenar::base::detail::TakeValue(std::move(lumTryResult_));                                        \
    })
