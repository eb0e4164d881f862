#pragma once

#include "App/Model/KVINI.h"

#include <QStringList>

// The names of manifest sections, in order, for comparing what the engine chose with what a test
// expects.
inline QStringList KVTestSectionNames(const QList<KVINISectionPtr> &sections)
{
    QStringList names;
    for (const KVINISectionPtr &section : sections)
        names << section->name();
    return names;
}
