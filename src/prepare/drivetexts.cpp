#include "prepare/drivetexts.h"

namespace Tavrinox {

QString windowsLauncherText()
{
    return QStringLiteral(
        "@echo off\r\n"
        "setlocal\r\n"
        "chcp 65001 >nul\r\n"
        "set \"APP_DIR=%~dp0Tavrinox\\windows\"\r\n"
        "if not exist \"%APP_DIR%\\Tavrinox.exe\" goto :bundle_incompleto\r\n"
        "for %%F in (vcruntime140.dll vcruntime140_1.dll msvcp140.dll) do if not exist \"%APP_DIR%\\%%F\" "
        "goto "
        ":bundle_incompleto\r\n"
        "cd /d \"%APP_DIR%\"\r\n"
        "start \"Tavrinox\" \"Tavrinox.exe\"\r\n"
        "exit /b 0\r\n"
        ":bundle_incompleto\r\n"
        "set \"MENSAGEM=Não foi possível iniciar o Tavrinox porque o bundle portátil está incompleto ou foi "
        "alterado. As bibliotecas de execução necessárias devem acompanhar o aplicativo. Solicite à equipe "
        "responsável uma nova preparação da unidade USB.\"\r\n"
        "powershell.exe -NoProfile -Command \"Add-Type -AssemblyName PresentationFramework; "
        "[System.Windows.MessageBox]::Show($env:MENSAGEM, 'Tavrinox', 'OK', 'Error')\" 2>nul\r\n"
        "if errorlevel 1 echo %MENSAGEM%\r\n"
        "exit /b 1\r\n");
}

QString linuxLauncherText()
{
    return QStringLiteral("#!/bin/sh\n"
                          "SCRIPT_DIR=\"$(CDPATH= cd -- \"$(dirname -- \"$0\")\" && pwd)\"\n"
                          "APP_DIR=\"$SCRIPT_DIR/Tavrinox/linux\"\n"
                          "APP_BIN=\"$APP_DIR/Tavrinox\"\n"
                          "\n"
                          "show_error() {\n"
                          "    if command -v zenity >/dev/null 2>&1; then\n"
                          "        zenity --error --title=\"Tavrinox\" --text=\"$1\"\n"
                          "    elif command -v xmessage >/dev/null 2>&1; then\n"
                          "        xmessage -center \"Tavrinox: $1\"\n"
                          "    else\n"
                          "        printf 'Tavrinox: %s\\n' \"$1\" >&2\n"
                          "    fi\n"
                          "}\n"
                          "\n"
                          "if [ ! -f \"$APP_BIN\" ]; then\n"
                          "    show_error \"Executavel Linux nao encontrado em: $APP_BIN\"\n"
                          "    exit 1\n"
                          "fi\n"
                          "\n"
                          "if [ ! -x \"$APP_BIN\" ]; then\n"
                          "    chmod +x \"$APP_BIN\" 2>/dev/null || true\n"
                          "fi\n"
                          "\n"
                          "export LD_LIBRARY_PATH=\"$APP_DIR/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}\"\n"
                          "export QT_PLUGIN_PATH=\"$APP_DIR/plugins${QT_PLUGIN_PATH:+:$QT_PLUGIN_PATH}\"\n"
                          "cd \"$APP_DIR\" || exit 1\n"
                          "\"$APP_BIN\" \"$@\"\n"
                          "status=$?\n"
                          "if [ \"$status\" -ne 0 ]; then\n"
                          "    show_error \"Nao foi possivel iniciar o Tavrinox. Codigo de saida: $status\"\n"
                          "fi\n"
                          "exit \"$status\"\n");
}

QString readmeText()
{
    return QStringLiteral(
        "Tavrinox — unidade portátil\n"
        "\n"
        "Raiz da unidade USB:\n"
        "- tavrinox.susb: container criptografado\n"
        "- Tavrinox-Windows.bat: inicializador Windows\n"
        "- Tavrinox-Linux.sh: inicializador Linux\n"
        "\n"
        "Para uso entre Windows e Linux, recomenda-se formatar a unidade em exFAT.\n"
        "Antes de preparar ou atualizar, confirme que a unidade está montada com permissões de leitura, "
        "gravação e "
        "execução.\n"
        "Ejete a unidade com segurança após concluir a operação.\n"
        "\n"
        "A pasta Tavrinox/windows contém o executável Windows quando um bundle Windows está disponível.\n"
        "A pasta Tavrinox/linux contém o executável Linux e as dependências copiadas deste ambiente.\n"
        "As dependências Qt e bibliotecas de runtime são copiadas durante a preparação quando "
        "disponíveis.\n");
}

} // namespace Tavrinox
