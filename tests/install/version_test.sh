#!/usr/bin/env bash
# version_test.sh VERSION CHANGELOG: the Debian packages have the project's version.
. "$(dirname "$0")/testing.sh"
expect "the latest version in debian/changelog" "$1" "$(sed -n '1s/^giivela (\(.*\)) .*/\1/p' "$2")"
finish
