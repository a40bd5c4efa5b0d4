#!/bin/sh
# Includes point one way, downwards. Fails with a line for each include that points up or aside,
# and for each system header of sockets, epoll, signals, processes or loading outside platform/.
set -eu
cd "$(dirname "$0")/.."

allowed() {
    case "$1" in
        platform) echo "platform" ;;
        common) echo "common platform" ;;
        types) echo "types common platform" ;;
        protocol) echo "protocol common platform" ;;
        io) echo "io common platform" ;;
        queues) echo "queues io types common platform" ;;
        checks) echo "checks queues io types common platform" ;;
        dump) echo "dump protocol queues io types common platform" ;;
        siblings) echo "siblings io common platform" ;;
        parent) echo "parent dump queues io types common platform" ;;
        *) echo "unknown folder $1" >&2; exit 1 ;;
    esac
}

found=0
for folder in src/*/; do
    folder=$(basename "$folder")
    permitted=" $(allowed "$folder") "
    grep -rn --include='*.h' --include='*.cpp' --include='*.inc' '^ *# *include "' "src/$folder" |
        while IFS= read -r line; do
            target=$(printf '%s' "$line" | sed 's/.*include "\([^"/]*\)\/.*/\1/')
            case "$permitted" in
                *" $target "*) ;;
                *) echo "points up: $line" ;;
            esac
        done > /tmp/include_direction.$$
    if [ -s /tmp/include_direction.$$ ]; then cat /tmp/include_direction.$$; found=1; fi
    rm -f /tmp/include_direction.$$
done

if grep -rnE --include='*.h' --include='*.cpp' \
    '^ *# *include <(sys/|netinet/|arpa/|netdb|unistd|fcntl|poll|signal|csignal|dlfcn|errno|cerrno|spawn|termios|syslog|execinfo)' \
    src tools | grep -v '^src/platform/'; then
    echo "system headers like these belong to src/platform/"
    found=1
fi
exit $found
