@echo off
setlocal
chcp 65001 >nul
set "APP_DIR=%~dp0Tavrinox\windows"
if not exist "%APP_DIR%\Tavrinox.exe" goto :bundle_incompleto
for %%F in (vcruntime140.dll vcruntime140_1.dll msvcp140.dll) do if not exist "%APP_DIR%\%%F" goto :bundle_incompleto
cd /d "%APP_DIR%"
start "Tavrinox" "Tavrinox.exe"
exit /b 0
:bundle_incompleto
set "MENSAGEM=Não foi possível iniciar o Tavrinox porque o bundle portátil está incompleto ou foi alterado. As bibliotecas de execução necessárias devem acompanhar o aplicativo. Solicite à equipe responsável uma nova preparação da unidade USB."
powershell.exe -NoProfile -Command "Add-Type -AssemblyName PresentationFramework; [System.Windows.MessageBox]::Show($env:MENSAGEM, 'Tavrinox', 'OK', 'Error')" 2>nul
if errorlevel 1 echo %MENSAGEM%
exit /b 1
