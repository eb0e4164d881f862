#!/usr/bin/env bash
# Serves a folder over HTTP with nginx on 127.0.0.1, for the demo's update server.
#
#   tools/demo-server.sh start <docroot> <port> [state-dir]
#   tools/demo-server.sh stop  <docroot> <port> [state-dir]
#
# NESTORA_DEMO_SERVER_DIRECTIVES, when set, is added to the server block as it stands (for example
# "limit_rate 1m;" to make downloads take long enough to watch).
#
# nginx runs as the current user. Its configuration, pid file, logs and temporary folders live in
# the state folder (default: ${TMPDIR:-/tmp}/nestora-demo-server-<port>); nothing under /etc/nginx
# or /var is read or written.
set -euo pipefail

usage() {
  echo "usage: $0 start|stop <docroot> <port> [state-dir]" >&2
  exit 2
}

(($# >= 3 && $# <= 4)) || usage
action=$1
docroot=$(realpath -e -- "$2") || { echo "$0: no such folder: $2" >&2; exit 1; }
port=$3
[[ $port =~ ^[0-9]+$ ]] && ((port > 0 && port < 65536)) || { echo "$0: bad port: $port" >&2; exit 1; }
state=${4:-${TMPDIR:-/tmp}/nestora-demo-server-$port}
nginx=/usr/sbin/nginx
[[ -x $nginx ]] || { echo "$0: $nginx is missing; run tools/install-deps.sh" >&2; exit 1; }

running_pid() {
  local pid
  pid=$(cat "$state/nginx.pid" 2>/dev/null) || return 1
  kill -0 "$pid" 2>/dev/null && echo "$pid"
}

start() {
  if pid=$(running_pid); then
    echo "$0: already serving on port $port (pid $pid)" >&2
    exit 1
  fi
  mkdir -p "$state"
  state=$(realpath -e -- "$state")
  # As root the worker processes would otherwise become "nobody" and could not read the folder.
  local user_line=""
  ((EUID == 0)) && user_line="user $(id -un) $(id -gn);"
  cat >"$state/nginx.conf" <<CONF
$user_line
pid "$state/nginx.pid";
error_log "$state/error.log";
worker_processes 1;
events { worker_connections 256; }
http {
    access_log "$state/access.log";
    client_body_temp_path "$state/client_body";
    proxy_temp_path "$state/proxy";
    fastcgi_temp_path "$state/fastcgi";
    uwsgi_temp_path "$state/uwsgi";
    scgi_temp_path "$state/scgi";
    types { text/plain ini txt; application/zip zip; application/xml xml; application/json json; }
    default_type application/octet-stream;
    sendfile on;
    server {
        listen 127.0.0.1:$port;
        root "$docroot";
        ${NESTORA_DEMO_SERVER_DIRECTIVES:-}
    }
}
CONF
  "$nginx" -p "$state" -c "$state/nginx.conf" -e "$state/error.log"
  for _ in $(seq 50); do
    if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
      echo "Serving $docroot at http://127.0.0.1:$port/ (pid $(running_pid), logs in $state)"
      return
    fi
    sleep 0.1
  done
  echo "$0: nginx did not start; see $state/error.log" >&2
  exit 1
}

stop() {
  local pid
  if ! pid=$(running_pid); then
    echo "$0: nothing is serving from $state" >&2
    return
  fi
  kill -TERM "$pid"
  for _ in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || { echo "Stopped the server on port $port"; return; }
    sleep 0.1
  done
  echo "$0: nginx (pid $pid) did not stop" >&2
  exit 1
}

case $action in
  start) start ;;
  stop) stop ;;
  *) usage ;;
esac
