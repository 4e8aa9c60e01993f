#include "platform/Accessibility.h"

#include <QStringList>
#include <atomic>

namespace platform {

namespace {
std::atomic<std::int64_t> liveObjects{0};

QString number(double value) {
    return QString::number(value, 'g', 12);
}
} // namespace

AXObject::AXObject(Payload payload) : payload_(std::move(payload)) {
    ++liveObjects;
}
AXObject::~AXObject() {
    --liveObjects;
}

std::int64_t AXObject::liveCount() {
    return liveObjects.load();
}

AXElementImpl* AXObject::element() const {
    const auto* element = std::get_if<std::shared_ptr<AXElementImpl>>(&payload_);
    return element ? element->get() : nullptr;
}

QString AXObject::describe() const {
    struct Describe {
        QString operator()(const std::shared_ptr<AXElementImpl>& e) const {
            return e ? e->describe() : QStringLiteral("<AXUIElement nil>");
        }
        QString operator()(const QString& s) const { return s; }
        QString operator()(Point p) const {
            return QStringLiteral("{x=%1 y=%2}").arg(number(p.x), number(p.y));
        }
        QString operator()(Size s) const {
            return QStringLiteral("{w=%1 h=%2}").arg(number(s.width), number(s.height));
        }
        QString operator()(Rect r) const {
            return QStringLiteral("{x=%1 y=%2 w=%3 h=%4}")
                .arg(number(r.x), number(r.y), number(r.width), number(r.height));
        }
        QString operator()(CFRange r) const {
            return QStringLiteral("{location=%1 length=%2}").arg(r.location).arg(r.length);
        }
        QString operator()(bool b) const {
            return b ? QStringLiteral("true") : QStringLiteral("false");
        }
        QString operator()(double d) const { return number(d); }
        QString operator()(const std::vector<AXRef>& items) const {
            QStringList parts;
            for (const auto& item : items)
                parts << axDescribe(item);
            return u'(' + parts.join(QStringLiteral(", ")) + u')';
        }
    };
    return std::visit(Describe{}, payload_);
}

std::optional<QString> axString(const AXRef& value) {
    if (!value)
        return std::nullopt;
    if (const auto* text = std::get_if<QString>(&value->payload()))
        return *text;
    return std::nullopt;
}

QString axDescribe(const AXRef& value) {
    return value ? value->describe() : QStringLiteral("nil");
}

namespace {
template <typename T> bool unpack(const AXRef& value, T& out) {
    if (!value)
        return false;
    if (const auto* stored = std::get_if<T>(&value->payload())) {
        out = *stored;
        return true;
    }
    return false;
}
} // namespace

bool axValueGetValue(const AXRef& value, Point& out) {
    return unpack(value, out);
}
bool axValueGetValue(const AXRef& value, Size& out) {
    return unpack(value, out);
}
bool axValueGetValue(const AXRef& value, Rect& out) {
    return unpack(value, out);
}
bool axValueGetValue(const AXRef& value, CFRange& out) {
    return unpack(value, out);
}

} // namespace platform
