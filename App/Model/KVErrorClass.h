#pragma once

#include "Core/Extensions/KVError.h"

#include <QString>

// The kinds of failure a user is told apart, whatever domain and code the error carries. Each has
// one text in the string tables and one exit status of the headless mode (KVErrorClass.cpp);
// a new kind of failure is a new row there, never a text or a status of its own elsewhere.
enum class KVErrorClass {
    Failed,              // anything not named below
    UpdateURLNotFound,   // the installer has no manifest address
    ServerUnreachable,   // offline, connection refused, host not found, time-out, TLS failure
    ServerError,         // the server answered with an HTTP error status
    InvalidManifest,     // the manifest arrived but holds no section
    DamagedDownload,     // digest mismatch, or the body was cut short
    DiskFull,            // not enough space in a folder
    ReadOnlyFolder,      // a folder on a read-only file system: administrator rights would not help
    PromptDismissed,     // the administrator prompt was dismissed
    ElevatorUnavailable, // pkexec missing, refusing, or without an authentication agent
    InstallerDamaged,    // the installer's own install script is missing or not executable
    UnpackFailed,        // the unzip tool could not unpack an archive
    LaunchFailed,        // Nestora could not be started
    NothingInstalled,    // Nestora is not installed and the server offers none to install
    InvalidArchive,      // a verified archive of the wrong shape, unsafe to unpack or deploy
    UnverifiedManifest,  // the manifest's signature, serial or expiry is not good: it is not used
    InsecureRedirect,    // an HTTPS address sent the installer on to plain HTTP, which it does not follow
    ProxyRefused,        // the proxy wants a user name and password: none was given, or it refused them
};

// The kind of the error, judged by its underlying cause where it carries one.
KVErrorClass KVErrorClassOf(const KVError &error);

// What the user is told: the class's text from the string table, filled with the error's details
// (HTTP status, folder, bytes needed, the vendor's download address). Thread: any.
QString KVErrorText(const KVError &error);

// The exit status of the headless mode for a failure of this class (0 to 4 are taken by success,
// a failure of no named class, usage errors, an unreachable server and a second instance).
int KVErrorExitStatus(KVErrorClass errorClass);

// The product as users know it, and where they can download it by hand.
QString KVProductName();
QString KVVendorDownloadAddress();
