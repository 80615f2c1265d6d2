#!/bin/sh
SCRIPT_DIR="$(CDPATH= cd -- "$(dirname -- "$0")" && pwd)"
APP_DIR="$SCRIPT_DIR/Tavrinox/linux"
APP_BIN="$APP_DIR/Tavrinox"

show_error() {
    if command -v zenity >/dev/null 2>&1; then
        zenity --error --title="Tavrinox" --text="$1"
    elif command -v xmessage >/dev/null 2>&1; then
        xmessage -center "Tavrinox: $1"
    else
        printf 'Tavrinox: %s\n' "$1" >&2
    fi
}

if [ ! -f "$APP_BIN" ]; then
    show_error "Executavel Linux nao encontrado em: $APP_BIN"
    exit 1
fi

if [ ! -x "$APP_BIN" ]; then
    chmod +x "$APP_BIN" 2>/dev/null || true
fi

export LD_LIBRARY_PATH="$APP_DIR/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export QT_PLUGIN_PATH="$APP_DIR/plugins${QT_PLUGIN_PATH:+:$QT_PLUGIN_PATH}"
cd "$APP_DIR" || exit 1
"$APP_BIN" "$@"
status=$?
if [ "$status" -ne 0 ]; then
    show_error "Nao foi possivel iniciar o Tavrinox. Codigo de saida: $status"
fi
exit "$status"
