#include "Core/Extensions/KVWindowPlacement.h"

#include "Core/Extensions/KVVersionComparison.h"

namespace KVWindowPlacement {

QPointF topRightOrigin(QSizeF screenSize, QSizeF windowSize, double menuBarHeight)
{
    screenSize = screenSize.isValid() ? screenSize : QSizeF(0, 0);
    windowSize = windowSize.isValid() ? windowSize : QSizeF(0, 0);
    return {screenSize.width() - windowSize.width() - 24,
            screenSize.height() - windowSize.height() - menuBarHeight - 24};
}

OriginScan scanWindowOrigins(const QStringList &arguments)
{
    OriginScan scan;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments[i] != QLatin1String("-KVWindowOrigin"))
            continue;
        if (i + 2 >= arguments.size()) {
            scan.missingValue = true;
            break;
        }
        // The values read as the platform's integer value; the scan goes on at the x value, which
        // is itself examined as a possible flag.
        scan.origins << QPointF(double(leadingIntegerValue(arguments[i + 1])),
                                double(leadingIntegerValue(arguments[i + 2])));
    }
    return scan;
}

} // namespace KVWindowPlacement
