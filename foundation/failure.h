#pragma once

// What library code returns instead of printing: the box or step that failed
// and why. The program decides how (and whether) the user sees it.
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace QVMX {

struct Failure {
    // The box path ("moov.trak.mdia.minf.stbl.stco") or the step ("sps_parse").
    std::wstring where;
    // Why, in the words the user sees; no trailing newline.
    std::wstring cause;

    // "where: cause", or the cause alone when there is no where.
    std::wstring text() const { return where.empty() ? cause : where + L": " + cause; }
};

// The system's words for an errno value ("No space left on device").
std::wstring systemCause(int error);

// Either a value or the failure that kept it from being made.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }

    // Only when ok().
    T& value() { return std::get<0>(state_); }
    const T& value() const { return std::get<0>(state_); }
    T& operator*() { return value(); }
    const T& operator*() const { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    // Only when !ok().
    const Failure& failure() const { return std::get<1>(state_); }

private:
    std::variant<T, Failure> state_;
};

// Success, or the failure: for steps that make nothing.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(Failure failure) : failure_(std::move(failure)) {}
    static Status success() { return {}; }

    bool ok() const { return !failure_.has_value(); }
    explicit operator bool() const { return ok(); }
    // Only when !ok().
    const Failure& failure() const { return *failure_; }

private:
    std::optional<Failure> failure_;
};

}  // namespace QVMX
