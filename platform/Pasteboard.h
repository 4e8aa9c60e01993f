#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

// The pasteboard port: the system-wide clipboard shared with every application. Text
// exchange reads and writes only its plain-text flavour; other flavours (rich text, images)
// exist on it and are lost when it is cleared. Callable from any thread.
namespace platform {

inline constexpr auto plainTextType = "text/plain";

class PasteboardPort {
public:
    virtual ~PasteboardPort() = default;

    // The plain text on the pasteboard, or none.
    virtual std::optional<QString> string() = 0;
    // Removes everything (every flavour) from the pasteboard.
    virtual void clearContents() = 0;
    // Puts one plain text on the pasteboard, beside whatever else it holds.
    virtual bool setString(const QString& text) = 0;
    // Replaces everything on the pasteboard with one plain text. Where the clipboard has an
    // owner, it passes from one to the next without an empty moment in between, in which a
    // clipboard manager would put its last entry back over the text.
    virtual bool replaceContents(const QString& text) {
        clearContents();
        return setString(text);
    }
    // A counter that grows whenever the pasteboard's owner or contents change.
    virtual std::int64_t changeCount() = 0;
    // The flavours (MIME types) currently on the pasteboard.
    virtual QStringList types() = 0;
    // The process whose application put the current contents there: -1 when it has none or
    // cannot be told (no owner, a clipboard manager without a window); none when this
    // pasteboard does not know owners at all.
    virtual std::optional<std::int32_t> ownerProcess() { return std::nullopt; }
};

} // namespace platform
