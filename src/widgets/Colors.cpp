#include "widgets/Colors.h"

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
        c = QColor::fromRgbF(c.redF() + (goal.redF() - c.redF()) * 0.1f, c.greenF() + (goal.greenF() - c.greenF()) * 0.1f,
            c.blueF() + (goal.blueF() - c.blueF()) * 0.1f);
    return c;
}

QPalette readableDisabled(QPalette palette)
{
    const std::pair<QPalette::ColorRole, QPalette::ColorRole> pairs[] = {
        { QPalette::WindowText, QPalette::Window },
        { QPalette::ButtonText, QPalette::Button },
        { QPalette::Text, QPalette::Base },
        { QPalette::PlaceholderText, QPalette::Base },
    };
    for (const auto& [text, background] : pairs) {
        const QColor paper = palette.color(QPalette::Disabled, background);
        const QColor enabled = palette.color(QPalette::Active, text);
        QColor faded = palette.color(QPalette::Disabled, text);
        if (faded.alpha() < 255) // a translucent colour shows the background through it
            faded = QColor::fromRgbF(faded.redF() * faded.alphaF() + paper.redF() * (1 - faded.alphaF()),
                faded.greenF() * faded.alphaF() + paper.greenF() * (1 - faded.alphaF()),
                faded.blueF() * faded.alphaF() + paper.blueF() * (1 - faded.alphaF()));
        // Step towards the enabled colour; when even that falls short, keep the enabled one.
        for (int step = 1; step <= 10 && contrastRatio(faded, paper) < 4.5; ++step) {
            const float t = step / 10.0f;
            faded = QColor::fromRgbF(faded.redF() + (enabled.redF() - faded.redF()) * t,
                faded.greenF() + (enabled.greenF() - faded.greenF()) * t,
                faded.blueF() + (enabled.blueF() - faded.blueF()) * t);
        }
        palette.setColor(QPalette::Disabled, text, faded);
    }
    return palette;
}

} // namespace Colors
