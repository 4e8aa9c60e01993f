#include "support/Error.h"

namespace support {

const char* Error::what() const noexcept {
    try {
        if (whatCache_.empty())
            whatCache_ = errorDescription().toStdString();
        return whatCache_.c_str();
    } catch (...) {
        return "error";
    }
}

QString CancellationError::errorDescription() const {
    return QStringLiteral("The operation was cancelled.");
}

QString describeError(const std::exception_ptr& error) {
    if (!error)
        return {};
    try {
        std::rethrow_exception(error);
    } catch (const Error& e) {
        return e.errorDescription();
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("Unknown error");
    }
}

bool isNotice(const std::exception_ptr& error) {
    if (!error)
        return false;
    try {
        std::rethrow_exception(error);
    } catch (const Error& e) {
        return e.isNotice();
    } catch (...) {
        return false;
    }
}

} // namespace support
