#!/usr/bin/env bash
# Benchmark of one application update, run on demand (never by CTest):
#
#   bench/update/run.sh [build-folder]        (default: build-bench; ROUNDS=3 by default)
#
# An archive of about 200 MB holding about 2,000 files is served by nginx on 127.0.0.1. The
# installer's headless mode updates an installed application from it (manifest, download, MD5,
# unpacking, deployment, hand-over), and a shell pipeline does the same work with curl -o,
# md5sum, unzip and mv. Both run in turn, ROUNDS times each, in one invocation; the script prints
# the median wall times, their ratio and the peak resident memory of each side. The installer is
# built for this in its own build folder, in Release and without sanitizers.
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(realpath -m -- "${1:-$root/build-bench}")
rounds=${ROUNDS:-3}
random_files=1600    # incompressible files of 100 KiB: 160 MiB, stored as they are
text_files=400       # compressible text of about 250 KB each, deflated to about a fifth

for tool in curl md5sum unzip zip python3 /usr/bin/time /usr/sbin/nginx cmake ninja; do
  command -v "$tool" >/dev/null || { echo "$0: $tool is missing; run tools/install-deps.sh" >&2; exit 1; }
done

echo "== Building the installer (Release, no sanitizers) in $build"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DNESTORA_BUILD_TESTS=OFF \
  -DNESTORA_SANITIZE=OFF "${launcher[@]}" >/dev/null
cmake --build "$build" --target NestoraInstaller NestoraCompanion nestora-publish >/dev/null
installer=$build/NestoraInstaller.app/Contents/MacOS/NestoraInstaller
companion=$build/companion/Nestora.app

work=$(mktemp -d "${TMPDIR:-/tmp}/nestora-bench-XXXXXX")
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cleanup() {
  "$root/tools/demo-server.sh" stop "$work/www" "$port" "$work/nginx" >/dev/null 2>&1 || true
  rm -rf -- "$work"
}
trap cleanup EXIT

# Sets CFBundleVersion in a bundle's Info.plist.
set_version() {
  python3 - "$1/Contents/Info.plist" "$2" <<'PY'
import plistlib, sys
path, version = sys.argv[1], sys.argv[2]
with open(path, "rb") as f:
    info = plistlib.load(f)
info["CFBundleVersion"] = version
with open(path, "wb") as f:
    plistlib.dump(info, f)
PY
}

echo "== Generating the application archive in $work"
mkdir -p "$work/stage" "$work/www" "$work/old"
cp -R "$companion" "$work/stage/Nestora.app"
set_version "$work/stage/Nestora.app" 2.2.0
data=$work/stage/Nestora.app/Contents/Resources/data
mkdir -p "$data/blobs" "$data/text"
head -c $((random_files * 102400)) /dev/urandom | split -b 102400 -a 4 -d - "$data/blobs/blob-"
for ((i = 0; i < text_files; i++)); do seq "$((i * 1000))" 3 "$((i * 1000 + 120000))" >"$data/text/table-$i.txt"; done
(cd "$work/stage" && zip -q -r -y -1 "$work/www/Nestora-2.2.0.zip" Nestora.app)
cat >"$work/description.json" <<JSON
{"application": {"releases": [{"version": "2.2.0", "file": "Nestora-2.2.0.zip"}]}}
JSON
"$root/tools/demo-server.sh" start "$work/www" "$port" "$work/nginx" >/dev/null
"$build/tools/publish/nestora-publish" --base-url "http://127.0.0.1:$port/" "$work/www" "$work/description.json" >/dev/null
archive_bytes=$(stat -c %s "$work/www/Nestora-2.2.0.zip")
file_count=$(find "$work/stage/Nestora.app" -type f | wc -l)
unpacked_bytes=$(du -sb "$work/stage/Nestora.app" | cut -f1)
# The installed application that both sides replace: the same tree at version 2.0.0.
cp -R "$work/stage/Nestora.app" "$work/old/Nestora.app"
set_version "$work/old/Nestora.app" 2.0.0
rm -rf "$work/stage"
url="http://127.0.0.1:$port/Nestora-2.2.0.zip"
digest=$(sed -n '/^\[Mac_Application_2.2.0\]/,/^\[/s/^MD5=//p' "$work/www/manifest.ini")

# A fresh sandbox per run: home, settings, temporary and applications folders, the old application
# (hard links: set up at once, yet removed file by file like a real one).
prepare() {
  rm -rf "$work/run"
  mkdir -p "$work/run/home/Downloads" "$work/run/tmp" "$work/run/Applications"
  cp -al "$work/old/Nestora.app" "$work/run/Applications/Nestora.app"
  printf '{"ApplicationUpdate": "http://127.0.0.1:%s/manifest.ini"}\n' "$port" \
    >"$work/run/home/Downloads/TestServerForVexa.txt"
}

installed_version() {
  python3 -c 'import plistlib, sys; print(plistlib.load(open(sys.argv[1], "rb"))["CFBundleVersion"])' \
    "$work/run/Applications/Nestora.app/Contents/Info.plist"
}

# The installer hands over to the application it installed; that one is stopped by its own id.
stop_companion() {
  local record=$work/run/companion.jsonl pid
  for _ in $(seq 100); do [[ -s $record ]] && break; sleep 0.05; done
  pid=$(python3 -c 'import json, sys; print(json.loads(open(sys.argv[1]).readline())["pid"])' "$record" 2>/dev/null) ||
    { echo "$0: the installer did not start the application" >&2; exit 1; }
  kill "$pid" 2>/dev/null || true
}

run_installer() {
  prepare
  env HOME="$work/run/home" XDG_DATA_HOME="$work/run/home/.local/share" \
    XDG_CONFIG_HOME="$work/run/home/.config" TMPDIR="$work/run/tmp" \
    NESTORA_APPLICATIONS_DIR="$work/run/Applications" NESTORA_DISABLE_SYSLOG=1 \
    NESTORA_COMPANION_RECORD="$work/run/companion.jsonl" \
    /usr/bin/time -f '%e %M' -o "$work/time" "$installer" --headless --accept-license >"$work/installer.log" 2>&1 ||
    { cat "$work/installer.log" >&2; exit 1; }
  [[ $(installed_version) == 2.2.0 ]] || { echo "$0: the installer did not deploy 2.2.0" >&2; exit 1; }
  stop_companion
  cat "$work/time"
}

run_pipeline() {
  prepare
  WORK=$work/run URL=$url DIGEST=$digest MANIFEST="http://127.0.0.1:$port/manifest.ini" \
    /usr/bin/time -f '%e %M' -o "$work/time" bash -c '
      set -euo pipefail
      curl -sf -o "$WORK/tmp/manifest.ini" "$MANIFEST"
      curl -sf -o "$WORK/tmp/app.zip" "$URL"
      [[ $(md5sum "$WORK/tmp/app.zip" | cut -d" " -f1) == "$DIGEST" ]]
      unzip -q "$WORK/tmp/app.zip" -d "$WORK/tmp/unpacked"
      rm -rf "$WORK/Applications/Nestora.app"
      mv "$WORK/tmp/unpacked/Nestora.app" "$WORK/Applications/Nestora.app"'
  [[ $(installed_version) == 2.2.0 ]] || { echo "$0: the pipeline did not deploy 2.2.0" >&2; exit 1; }
  cat "$work/time"
}

median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

printf '== Archive: %d MB, %d files (%d MB unpacked); %d rounds\n' \
  $((archive_bytes / 1000000)) "$file_count" $((unpacked_bytes / 1000000)) "$rounds"
: >"$work/installer.times"
: >"$work/pipeline.times"
for ((round = 1; round <= rounds; round++)); do
  measured=$(run_pipeline)
  read -r p_time p_rss <<<"$measured"
  measured=$(run_installer)
  read -r i_time i_rss <<<"$measured"
  printf 'round %d: pipeline %6.2f s %7d KiB   installer %6.2f s %7d KiB\n' "$round" "$p_time" "$p_rss" "$i_time" "$i_rss"
  echo "$p_time $p_rss" >>"$work/pipeline.times"
  echo "$i_time $i_rss" >>"$work/installer.times"
done

p_median=$(cut -d' ' -f1 "$work/pipeline.times" | median)
i_median=$(cut -d' ' -f1 "$work/installer.times" | median)
p_peak=$(cut -d' ' -f2 "$work/pipeline.times" | sort -n | tail -1)
i_peak=$(cut -d' ' -f2 "$work/installer.times" | sort -n | tail -1)
awk -v p="$p_median" -v i="$i_median" -v pm="$p_peak" -v im="$i_peak" 'BEGIN {
  printf "== Median wall time: pipeline %.2f s, installer %.2f s, ratio %.3f (goal <= 1.15)\n", p, i, i / p
  printf "== Peak memory: installer %.1f MiB (goal < 64 MiB), largest pipeline tool %.1f MiB\n", im / 1024, pm / 1024
}'
