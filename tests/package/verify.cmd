@echo off
rem .\verify.cmd [program...]      with its folder: verify alone is a command of cmd.exe itself
rem
rem Runs the test programs in bin on this Windows, each in a folder of its own below results, and prints one table to
rem send back; it also stands in results\table.txt. All of them take many minutes, during which every
rem QuPCAudio.exe of this machine is ended. With arguments only the programs named are run: .\verify.cmd unit_platform
setlocal enableextensions
cd /d "%~dp0"
if not exist results mkdir results
set failed=0
set table=%~dp0results\table.txt
echo SonviaPCAudioDll, test programs on a real Windows > "%table%"
ver >> "%table%"
echo %PROCESSOR_IDENTIFIER% >> "%table%"
certutil -hashfile bin\SonviaPCAudioDll.dll SHA256 >> "%table%" 2>nul
if "%~1"=="" goto everything

:next
if "%~1"=="" goto done
call :one "%~1"
shift
goto next

:everything
for %%f in (bin\unit_*.exe bin\no_service\unit_*.exe bin_alone\unit_*.exe bin\integration_*.exe bin\stress_*.exe) do call :one "%%~nf"

:done
echo. >> "%table%"
echo %failed% failed >> "%table%"
type "%table%"
exit /b %failed%

:one
set program=%~dp0bin\%~1.exe
if exist "%~dp0bin\no_service\%~1.exe" set program=%~dp0bin\no_service\%~1.exe
if exist "%~dp0bin_alone\%~1.exe" set program=%~dp0bin_alone\%~1.exe
if not exist "results\%~1" mkdir "results\%~1"
pushd "results\%~1"
rem The tests of the pages need the pages of the tree.
"%program%" --gtest_output=xml:result.xml --gtest_filter=-ProtectionPage* > output.txt 2>&1
set code=%errorlevel%
popd
if "%code%"=="0" (
    echo ok     %~1 >> "%table%"
) else (
    echo FAILED %~1, exit code %code% >> "%table%"
    set /a failed+=1
)
exit /b 0
