#!/usr/bin/env python3
"""Writes the crafted application archives of the deployment tests into the folder given.

Each archive is a badly shaped "Nestora.app" release that must never replace an installed
application: the tests serve them from a real server and expect a clear error and the old
application untouched. They are made here rather than kept as binaries so that each shape can be
read, and changed, in one place.
"""

import io
import stat
import sys
import zipfile
from pathlib import Path

BUNDLE = "Nestora.app"
IDENTIFIER = "com.keldran.nestora"


def info_plist(identifier=IDENTIFIER, executable="Nestora"):
    return f"""<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>{identifier}</string>
<key>CFBundleExecutable</key><string>{executable}</string>
<key>CFBundleVersion</key><string>9.9.9</string>
</dict></plist>
""".encode()


def entry(name, data=b"", mode=0o644, kind=stat.S_IFREG, flag_bits=0):
    """One archive entry: (ZipInfo, data). Links hold their target as data."""
    info = zipfile.ZipInfo(name, date_time=(2024, 1, 1, 0, 0, 0))
    info.external_attr = (kind | mode) << 16
    info.create_system = 3  # Unix, so that the mode and the link type count
    info.compress_type = zipfile.ZIP_DEFLATED
    info.flag_bits |= flag_bits
    return info, data


def link(name, target):
    return entry(name, target.encode(), 0o777, stat.S_IFLNK)


def bundle(name=BUNDLE, identifier=IDENTIFIER, program_mode=0o755, plist=True):
    """The entries of a small application bundle whose program is a shell script."""
    entries = [entry(f"{name}/Contents/MacOS/Nestora", b"#!/bin/sh\nexit 0\n", program_mode)]
    if plist:
        entries.append(entry(f"{name}/Contents/Info.plist", info_plist(identifier)))
    return entries


def archive(entries, zip64=False, stream=False):
    """The archive's bytes. stream: written as to a pipe, so each entry ends in a data descriptor."""
    buffer = io.BytesIO()

    class Unseekable(io.RawIOBase):
        def writable(self):
            return True

        def write(self, data):
            return buffer.write(data)

    with zipfile.ZipFile(Unseekable() if stream else buffer, "w") as zip_file:
        for info, data in entries:
            with zip_file.open(info, "w", force_zip64=zip64) as member:
                member.write(data)
    return buffer.getvalue()


CRAFTED = {
    "not-an-archive": lambda: b"PK\3\4 not an archive",
    "with-readme": lambda: archive(bundle() + [entry("README.txt", b"read me")]),
    "parent-entry": lambda: archive(bundle() + [entry("../nestora-escaped.txt", b"escaped")]),
    "absolute-entry": lambda: archive(bundle() + [entry("/tmp/nestora-absolute.txt", b"absolute")]),
    "top-level-link": lambda: archive([link(BUNDLE, "/usr/bin")]),
    "link-leaving-bundle": lambda: archive(bundle() + [link(f"{BUNDLE}/Contents/Resources/data", "../../../..")]),
    "program-not-executable": lambda: archive(bundle(program_mode=0o644)),
    "other-identifier": lambda: archive(bundle(identifier="com.example.other"), stream=True),
    "no-info-plist": lambda: archive(bundle(plist=False)),
    "only-macosx": lambda: archive([entry("__MACOSX/._Nestora.app", b"\0\5\26\7")]),
    "file-as-bundle-zip64": lambda: archive([entry(BUNDLE, b"#!/bin/sh\n", 0o755)], zip64=True),
    # Latin-1 "Nestorá.app", flagged as neither UTF-8 nor anything else.
    "non-utf8-name": lambda: archive(bundle("NestorX.app")).replace(b"NestorX.app", b"Nestor\xe1.app"),
    "padded": lambda: b"\0" * 4096 + archive(bundle()),
    "expands-too-far": lambda: archive(bundle() + [entry(f"{BUNDLE}/Contents/Resources/zeros", bytes(32 << 20))]),
}


def main():
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for name, make in CRAFTED.items():
        (folder / f"{name}.zip").write_bytes(make())


if __name__ == "__main__":
    main()
