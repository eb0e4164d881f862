#pragma once

// Tells assistive technology about the installer's own views: the window by its title, a popup as
// a dialog named by its card, and the links of the licence text as links a screen reader can
// follow. Runs before the first widget exists (Qt keeps an interface once it has been asked for).
namespace KVIAccessible {

// Installs the interfaces of the drawn controls and of the installer's views; more than one call
// installs them once.
void install();

} // namespace KVIAccessible
