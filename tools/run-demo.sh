#!/usr/bin/env bash
# The Nestora installer end to end on this machine, without changing anything outside the build
# folder: installs what it needs, builds, publishes the sample companion application and sample data
# on a local nginx (127.0.0.1), signs the manifest with a key pair made for the demo, and runs the
# installer window in a sandboxed home that trusts that key and requires a signature.
#
#   tools/run-demo.sh [build-folder]        (default: build-demo)
#
# With a display the window is yours to click. Without one (or with NESTORA_DEMO_HEADLESS_X=1) it
# runs under Xvfb, ticks the licence box, presses Continue by itself, and saves a screenshot of each
# screen (check, licence, progress, completion) into <build-folder>/demo/screenshots.
#
# Environment: NESTORA_DEMO_PORT (default 8741, the port of the default AppUpdateURL),
# NESTORA_DEMO_RATE (download speed of the demo server, default 1m bytes a second, so the progress
# bar can be watched). To use a real update server instead, see the end of this file's README text:
# configure with -DNESTORA_UPDATE_URL=https://…/manifest.ini, or change the test-server file.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m -- "${1:-$root/build-demo}")
port=${NESTORA_DEMO_PORT:-8741}
rate=${NESTORA_DEMO_RATE:-1m}

say() { printf '\n== %s\n' "$*"; }

say "Installing the packages the demo needs"
"$root/tools/install-deps.sh"

say "Building into $build"
"$root/tools/build.sh" "$build" -DNESTORA_BUILD_TESTS=OFF

demo=$build/demo
www=$demo/www
sandbox=$demo/sandbox
shots=$demo/screenshots
rm -rf "$demo"
mkdir -p "$www" "$sandbox" "$shots" "$demo/staging" "$demo/keys"

say "Publishing the sample deliverables"
app_version=$(sed -n '/<key>CFBundleVersion<\/key>/{n;s/.*<string>\(.*\)<\/string>.*/\1/p;q}' \
  "$build/companion/Nestora.app/Contents/Info.plist")
cp -a "$build/companion/Nestora.app" "$demo/staging/"
# Sample content of a realistic size, so that the download takes long enough to be seen.
mkdir -p "$demo/staging/Nestora.app/Contents/Resources"
head -c $((6 * 1024 * 1024)) /dev/urandom >"$demo/staging/Nestora.app/Contents/Resources/sample-data.bin"
(cd "$demo/staging" && zip -qry "$www/Nestora-$app_version.zip" Nestora.app)
cp "$root/tools/demo/devices.xml" "$root/tools/demo/smart-cards.json" "$www/"
mkdir -p "$demo/staging/Icons" && cp "$root"/tools/demo/icons/* "$demo/staging/Icons/"
(cd "$demo/staging" && zip -qr "$www/device-icons.zip" Icons)
sed "s/@APPLICATION_VERSION@/$app_version/g" "$root/tools/demo/description.json" >"$demo/description.json"

say "Signing the manifest with a new key pair"
# A release engineer's key pair, made as the minisign tool makes it; -W stores the secret key
# without a password, which only a throw-away demo key may do.
minisign -G -W -p "$demo/keys/nestora.pub" -s "$demo/keys/nestora.key" >/dev/null
"$build/tools/publish/nestora-publish" "$www" "$demo/description.json" --base-url "http://127.0.0.1:$port/" \
  --sign "$demo/keys/nestora.key"
"$build/tools/publish/nestora-publish" --verify "$www/manifest.ini" --key "$demo/keys/nestora.pub"

say "Starting the demo update server"
server_state=$demo/server
# The manifest comes slowly, so the check screen stays up long enough to be seen; the downloads
# at the demo rate.
export NESTORA_DEMO_SERVER_DIRECTIVES="limit_rate $rate; location = /manifest.ini { limit_rate 200; }"
"$root/tools/demo-server.sh" start "$www" "$port" "$server_state"
cleanup() {
  [[ -n ${xvfb_pid:-} ]] && kill "$xvfb_pid" 2>/dev/null || true
  "$root/tools/demo-server.sh" stop "$www" "$port" "$server_state" >/dev/null || true
}
trap cleanup EXIT

# Everything the installer and the companion application write lands below the sandbox.
export HOME=$sandbox/home
export XDG_DATA_HOME=$HOME/.local/share XDG_CONFIG_HOME=$HOME/.config
export TMPDIR=$sandbox/tmp NESTORA_APPLICATIONS_DIR=$sandbox/Applications
export NESTORA_COMPANION_RECORD=$sandbox/companion-starts.txt NESTORA_DISABLE_SYSLOG=1
# The face the screens are laid out for (fonts-inter); the automated clicks below rely on it.
export NESTORA_UI_FONT=Inter
mkdir -p "$HOME/Downloads" "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$TMPDIR" "$NESTORA_APPLICATIONS_DIR"
# The installer's test-server file points it at the demo server, whatever AppUpdateURL says.
printf '{"ApplicationUpdate": "http://127.0.0.1:%s/manifest.ini"}\n' "$port" >"$HOME/Downloads/TestServerForVexa.txt"
# The administrator policy of this sandbox trusts the demo key and nothing unsigned; like the
# system's policy file it may be written by its owner only.
export NESTORA_POLICY_FILE=$sandbox/policy.ini
printf '[Trust]\nTrustedKeys=%s\nRequireSignature=true\n' "$(tail -n 1 "$demo/keys/nestora.pub")" >"$NESTORA_POLICY_FILE"
chmod 644 "$NESTORA_POLICY_FILE"

installer=$build/NestoraInstaller.app/Contents/MacOS/NestoraInstaller
export NESTORA_LAST_SCREEN=$shots/4-completion.png

if [[ -n ${DISPLAY:-} && -z ${NESTORA_DEMO_HEADLESS_X:-} ]]; then
  say "Running the installer: tick the box and press Continue"
  "$installer"
else
  say "Running the installer under Xvfb and clicking for you"
  display=99
  while [[ -e /tmp/.X$display-lock || -e /tmp/.X11-unix/X$display ]]; do display=$((display + 1)); done
  Xvfb ":$display" -screen 0 1280x800x24 -nolisten tcp >"$demo/xvfb.log" 2>&1 &
  xvfb_pid=$!
  export DISPLAY=:$display QT_QPA_PLATFORM=xcb
  for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done

  "$installer" &
  installer_pid=$!
  window=$(timeout 20 xdotool search --sync --onlyvisible --pid "$installer_pid" | head -n 1)
  shoot() { import -window "$window" "$shots/$1.png"; echo "  saved $shots/$1.png"; }

  sleep 0.5
  shoot 1-check
  # The licence screen follows the manifest, which the server logs once it has sent it all.
  for _ in $(seq 300); do grep -q '"GET /manifest.ini[^"]*" 200' "$server_state/access.log" && break; sleep 0.1; done
  sleep 1
  shoot 2-licence
  xdotool mousemove --window "$window" 49 88 click 1
  sleep 0.5
  shoot 2-licence-ticked
  xdotool mousemove --window "$window" 297 151 click 1
  sleep 2.5
  shoot 3-progress
  for _ in $(seq 600); do kill -0 "$installer_pid" 2>/dev/null || break; sleep 0.2; done
  if kill -0 "$installer_pid" 2>/dev/null; then
    echo "The installer did not finish in two minutes; see $XDG_DATA_HOME/Nestora/InstallerLog" >&2
    kill "$installer_pid"
  fi
  wait "$installer_pid" || true
  [[ -s $NESTORA_LAST_SCREEN ]] && echo "  saved $NESTORA_LAST_SCREEN"
fi

say "What the installer did"
for _ in $(seq 50); do [[ -s $NESTORA_COMPANION_RECORD ]] && break; sleep 0.2; done
echo "Companion application: $(ls -d "$NESTORA_APPLICATIONS_DIR"/Nestora.app 2>/dev/null || echo 'not installed')"
echo "Data files and history:"
(cd "$XDG_DATA_HOME" && find Nestora -mindepth 1 -maxdepth 2 -not -path '*/InstallerLog*' | sort | sed 's/^/  /')
echo "Signed manifest: key $(head -n 1 "$demo/keys/nestora.pub" | grep -oE '[0-9A-F]{16}$'), required by $NESTORA_POLICY_FILE;"
echo "  requests for the signature: $(grep -c '"GET /manifest.ini.minisig[^"]*" 200' "$server_state/access.log" || true)"
grep -hiE 'signature|signed|verif|trusted' "$XDG_DATA_HOME"/Nestora/InstallerLog/* 2>/dev/null | sed 's/^/  log: /' || true
echo "Companion starts (pid and arguments):"
cat "$NESTORA_COMPANION_RECORD" 2>/dev/null || echo "  none recorded"
# The companion application stays running, as it would for a user; stop it with the demo.
pkill_pids=$(for exe in /proc/[0-9]*/exe; do
  [[ $(readlink "$exe" 2>/dev/null) == "$NESTORA_APPLICATIONS_DIR"/* ]] && basename "$(dirname "$exe")"
done || true)
[[ -n $pkill_pids ]] && kill $pkill_pids 2>/dev/null || true
echo
echo "Screenshots: $shots"
echo "Sandbox (home, applications folder, logs): $sandbox"
