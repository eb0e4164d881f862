#!/bin/sh
# Replaces the installed application with a new copy, run as root for a system-wide install:
#   Install.sh <installed application> <new application> <applications folder>
# The new copy is staged inside the applications folder (on its file system), owned like that
# folder and writable by its owner only, then swapped in with one atomic exchange: at every
# instant the installed path holds either the complete old application or the complete new one.
# Any failure leaves the installed application as it was and exits non-zero with a message.
set -eu
umask 022

fail() {
    printf 'Install.sh: %s\n' "$*" >&2
    exit 1
}

# Swaps two paths of one file system atomically: renameat2(RENAME_EXCHANGE), which neither the
# shell nor this system's mv offers. perl is part of every Debian system.
exchange() {
    perl -MConfig -e '
        my %renameat2 = (x86_64 => 316, aarch64 => 276, riscv64 => 276, i386 => 353, i686 => 353, arm => 382);
        my ($arch) = $Config{archname} =~ /^([^-]+)/;
        my $number = $renameat2{$arch} or die "renameat2 is unknown on $arch\n";
        syscall($number, -100, $ARGV[0], -100, $ARGV[1], 2) == 0 or die "$!\n";
    ' "$1" "$2"
}

# A reader that went away (the installer was killed) must not kill this script before its clean-up:
# a write to a closed pipe then fails instead, and the script goes on.
trap '' PIPE

[ $# -eq 3 ] || fail "usage: Install.sh <installed application> <new application> <applications folder>"
installed=$1
new=$2
folder=${3%/}

[ -d "$folder" ] || fail "the applications folder does not exist: $folder"
name=${installed##*/}
if [ "$installed" != "$folder/$name" ] || [ -z "$name" ] || [ "$name" = . ] || [ "$name" = .. ]; then
    fail "the application must lie directly in the applications folder: $installed"
fi
# A link would make the permission changes below act on whatever it points to.
if [ -L "$new" ] || [ ! -e "$new" ]; then
    fail "the new application is missing or a link: $new"
fi

# Staging folders that a killed run left behind: only folders made here, told by their marker.
marker=.nestora-install-staging
for stale in "$folder"/.install-*; do
    if [ -d "$stale" ] && [ ! -L "$stale" ] && [ -f "$stale/$marker" ]; then
        rm -rf -- "$stale"
    fi
done

stage=$(mktemp -d "$folder/.install-XXXXXX") || fail "cannot create a staging folder in $folder"
trap 'rm -rf -- "$stage"' EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM
: >"$stage/$marker"

# A copy, not a move: the new application lies in the user's temporary folder, possibly on
# another file system, and the user must not be able to change it while root works on it.
cp -R -P -- "$new" "$stage/app" || fail "cannot copy $new into $folder"
# Checked again on the copy: the user could have swapped in a link since the test above.
[ ! -L "$stage/app" ] || fail "the new application is missing or a link: $new"
chown -R -h -- "$(stat -c '%u:%g' -- "$folder")" "$stage/app" || fail "cannot set the owner of $installed"
chmod -R u+rwX,go+rX,go-w,ug-s -- "$stage/app" || fail "cannot set the modes of $installed"

if [ -e "$installed" ] || [ -L "$installed" ]; then
    exchange "$stage/app" "$installed" || fail "cannot replace $installed"
else
    mv -T -- "$stage/app" "$installed" || fail "cannot move the new application to $installed"
fi
# The old application now lies in the staging folder, which the exit trap removes.
printf 'Install.sh: installed %s\n' "$installed" || true
