#pragma once

#include <QUuid>

// A fresh UUID in the platform's canonical text form: upper case, hyphenated, no braces. Names
// temporary files and folders.
inline QString KVUUIDString()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}
