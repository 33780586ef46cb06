#include "widgets/Colors.h"

#include <QGuiApplication>

#include <cmath>

namespace Colors {

double contrastRatio(const QColor& a, const QColor& b)
{
    auto luminance = [](const QColor& c) {
        auto channel = [](double v) { return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); };
        return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) + 0.0722 * channel(c.blueF());
    };
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor readableOn(const QColor& text, const QColor& background, double ratio)
{
    const bool lightBackground = contrastRatio(background, Qt::black) >= contrastRatio(background, Qt::white);
    const QColor goal = lightBackground ? QColor(Qt::black) : QColor(Qt::white);
    QColor c = text;
    for (int step = 0; step < 40 && contrastRatio(c, background) < ratio; ++step)
        c = QColor::fromRgbF(c.redF() + (goal.redF() - c.redF()) * 0.1f,
            c.greenF() + (goal.greenF() - c.greenF()) * 0.1f, c.blueF() + (goal.blueF() - c.blueF()) * 0.1f);
    return c;
}

QPalette readable(QPalette palette)
{
    struct Faded
    {
        QPalette::ColorGroup group;
        QPalette::ColorRole text;
        QPalette::ColorRole background;
        QPalette::ColorRole enabledText;
    };
    QList<Faded> faded;
    for (const auto& [text, background] : { std::pair { QPalette::WindowText, QPalette::Window },
             std::pair { QPalette::ButtonText, QPalette::Button },
             std::pair { QPalette::Text, QPalette::Base } })
        faded.append({ QPalette::Disabled, text, background, text });
    for (auto group : { QPalette::Active, QPalette::Inactive, QPalette::Disabled })
        faded.append({ group, QPalette::PlaceholderText, QPalette::Base, QPalette::Text });
    for (const Faded& f : std::as_const(faded)) {
        // Styles shade a button's face a little lighter or darker than its colour.
        const QColor base = palette.color(f.group, f.background);
        const QList<QColor> papers = f.background == QPalette::Button
            ? QList<QColor> { base, base.lighter(135), base.darker(112) }
            : QList<QColor> { base };
        const auto worst = [&papers](const QColor& c) {
            double ratio = 21;
            for (const QColor& paper : papers)
                ratio = std::min(ratio, contrastRatio(c, paper));
            return ratio;
        };
        const QColor& paper = base;
        const QColor enabled = palette.color(QPalette::Active, f.enabledText);
        QColor c = palette.color(f.group, f.text);
        const float a = c.alphaF(); // a translucent colour shows the background through it
        c = QColor::fromRgbF(c.redF() * a + paper.redF() * (1 - a), c.greenF() * a + paper.greenF() * (1 - a),
            c.blueF() * a + paper.blueF() * (1 - a));
        // Step towards the enabled colour; when even that falls short, it is the enabled one.
        for (int step = 1; step <= 10 && worst(c) < 4.5; ++step) {
            const float t = step / 10.0f;
            c = QColor::fromRgbF(c.redF() + (enabled.redF() - c.redF()) * t,
                c.greenF() + (enabled.greenF() - c.greenF()) * t,
                c.blueF() + (enabled.blueF() - c.blueF()) * t);
        }
        palette.setColor(f.group, f.text, c);
    }
    return palette;
}

namespace {

const Scheme lightScheme { false, grayColor, Qt::white, QColor(242, 242, 242), QColor(235, 235, 235), ink,
    QColor(70, 70, 70), mutedInk, amberInk, QColor(225, 225, 225) };
// Greys a touch warm of neutral; the muted text reads at 5.7:1 on the cards, the amber at 7.5:1.
const Scheme darkScheme { true, QColor(36, 36, 38), QColor(52, 52, 56), QColor(44, 44, 48),
    QColor(64, 64, 68), QColor(236, 236, 236), QColor(220, 220, 220), QColor(178, 178, 178), primaryColor,
    QColor(86, 86, 90) };

} // namespace

const Scheme& scheme()
{
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128 ? darkScheme : lightScheme;
}

QPalette schemePalette(QPalette base, const Scheme& colours)
{
    const QColor faded = colours.muted;
    const QPalette bevels(colours.button, colours.panel);
    for (auto group : { QPalette::Active, QPalette::Inactive, QPalette::Disabled }) {
        for (auto role :
            { QPalette::Light, QPalette::Midlight, QPalette::Mid, QPalette::Dark, QPalette::Shadow })
            base.setColor(group, role, bevels.color(group, role));
        const bool enabled = group != QPalette::Disabled;
        base.setColor(group, QPalette::Window, colours.panel);
        base.setColor(group, QPalette::WindowText, enabled ? colours.text : faded);
        base.setColor(group, QPalette::Base, colours.card);
        base.setColor(group, QPalette::AlternateBase, colours.panel);
        base.setColor(group, QPalette::Text, enabled ? colours.text : faded);
        base.setColor(group, QPalette::Button, colours.button);
        base.setColor(group, QPalette::ButtonText, enabled ? colours.text : faded);
        base.setColor(group, QPalette::PlaceholderText, faded);
    }
    return base;
}

QPalette lightPalette(QPalette base)
{
    return schemePalette(std::move(base), lightScheme);
}

} // namespace Colors
