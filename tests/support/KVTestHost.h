#pragma once

#include "App/Model/KVUpdateTypes.h"

// An engine host for tests: the window origin it reports (none when empty) and what it does when
// the engine asks the application to end; the screen is 1440 × 900 without a menu bar.
inline KVUpdateHost KVTestHost(std::function<void()> terminate, std::function<QPointF()> windowOrigin = {})
{
    KVUpdateHost host;
    host.windowOrigin = std::move(windowOrigin);
    host.windowSize = [] { return QSizeF(); };
    host.screenSize = [] { return QSizeF(1440, 900); };
    host.menuBarHeight = [] { return 0.0; };
    host.terminate = std::move(terminate);
    return host;
}
