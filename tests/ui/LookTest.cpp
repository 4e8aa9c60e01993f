// The drawing helpers: colours from hex, the spring curves, the symbols.
#include "ui/Color.h"
#include "ui/Icons.h"
#include "ui/Spring.h"

#include <gtest/gtest.h>

// Six hex digits, trimmed of what is not a letter or digit; odd input gives its number or
// black without failing.
TEST(ColorFromHex, ReadsTheDigitsAsOneNumber) {
    const struct {
        const char16_t* hex;
        const char* name;
    } cases[] = {
        {u"8B5CF6", "#8b5cf6"},
        {u"#6366f1", "#6366f1"},
        {u"  52525B;\n", "#52525b"},
        {u"0x3F3F46", "#3f3f46"},
        {u"FFF", "#000fff"},      // a smaller number, not a shorthand
        {u"12345678", "#345678"}, // only the low 24 bits are colour
        {u"12zz", "#000012"},     // reading stops at the first non-digit
        {u"", "#000000"},
        {u"FFFFFFFFFFFFFFFFFFFFFF", "#ffffff"},
    };
    for (const auto& c : cases) {
        const QColor color = ui::colorFromHex(c.hex);
        EXPECT_EQ(color.name().toStdString(), c.name) << QString::fromUtf16(c.hex).toStdString();
        EXPECT_EQ(color.alpha(), 255);
    }
}

TEST(Spring, StartsAtRestSettlesAndOvershootsByItsDamping) {
    for (const ui::Spring& s : {ui::phaseSpring, ui::selectionSpring, ui::tapSpring}) {
        EXPECT_NEAR(ui::springStep(s, 0), 0.0, 1e-12);
        EXPECT_NEAR(ui::springStep(s, ui::springSettlingTime(s)), 1.0, 1e-3);
    }
    const auto peak = [](const ui::Spring& s) {
        double best = 0;
        for (double t = 0; t < 1.0; t += 0.001)
            best = std::max(best, ui::springStep(s, t));
        return best - 1.0;
    };
    EXPECT_LT(peak(ui::phaseSpring), 0.01) << "damping 0.85 barely overshoots";
    EXPECT_GT(peak(ui::tapSpring), 0.05) << "damping 0.6 visibly bounces";
    EXPECT_LT(peak(ui::tapSpring), 0.15);
    EXPECT_EQ(ui::springEasing<ui::phaseSpring>(1.0), 1.0);
}

TEST(Symbols, EveryNamedSymbolExistsAndDrawsInTheAskedColour) {
    for (const char* name :
         {"text.badge.checkmark", "gear", "power", "gearshape.fill", "cpu.fill",
          "menubar.rectangle", "bolt.fill", "keyboard.fill", "lock.shield.fill", "key.fill",
          "text.bubble.fill", "eye", "eye.slash", "textformat.abc.dottedunderline", "pencil",
          "arrow.up.circle.fill", "checkmark", "xmark"}) {
        SCOPED_TRACE(name);
        const QImage image =
            ui::symbolImage(QString::fromLatin1(name), 48, QColor(0x20, 0x80, 0xF0));
        ASSERT_FALSE(image.isNull());
        int ink = 0;
        for (int y = 0; y < 48; ++y) {
            for (int x = 0; x < 48; ++x) {
                const QColor px = image.pixelColor(x, y);
                if (px.alpha() == 255) {
                    ++ink;
                    EXPECT_EQ(px.name().toStdString(), "#2080f0");
                }
            }
        }
        EXPECT_GT(ink, 40);
    }
    EXPECT_FALSE(ui::hasSymbol(QStringLiteral("no.such.symbol")));
    EXPECT_TRUE(ui::symbolImage(QStringLiteral("no.such.symbol"), 16, Qt::black).isNull());
}

TEST(Symbols, WhiteInTheDrawingCutsHoles) {
    // The filled circle with an arrow: ink around the arrow, a hole along its shaft.
    const QImage image = ui::symbolImage(QStringLiteral("arrow.up.circle.fill"), 96, Qt::red);
    EXPECT_EQ(image.pixelColor(48, 60).alpha(), 0) << "the arrow's shaft is a hole";
    EXPECT_EQ(image.pixelColor(30, 60).alpha(), 255) << "the circle beside it is ink";
    EXPECT_EQ(image.pixelColor(2, 2).alpha(), 0) << "outside the circle nothing is drawn";
}
