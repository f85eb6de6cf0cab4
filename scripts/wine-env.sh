# Sourced: how Wine is run in this project, in one place.

# shellcheck shell=bash
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Tests that use the service would end each other's in one prefix, so there are several: ctest gives each such test one
# of those in cmake/wine-prefixes.json, as "id:2,slots:1". Everything else runs in the first.
id=${CTEST_RESOURCE_GROUP_0_WINE:-id:1}
id=${id#id:} id=${id%%,*}
export WINEPREFIX=${SONVIA_WINEPREFIX:-$build/windows/wineprefix}${id#1}
export WINEARCH=win64
# Silent: Wine's own warnings would mix with the programs' output.
export WINEDEBUG=-all
# No offers to download .NET or a browser engine when a prefix is made; and the taskkill of this project, which
# scripts/wine-prefix installs, in place of the one built into Wine.
export WINEDLLOVERRIDES="mscoree,mshtml=;taskkill.exe=n,b"
# Nothing here has a window; without a display Wine does not even try.
unset DISPLAY WAYLAND_DISPLAY
