@echo off
rem Runs all tests of the kit and its benchmarks; results.txt then says what this machine is and what went wrong.
rem run.cmd --skip-benchmarks, or --only TEXT for the cases in whose names it stands.
setlocal
set PRISMATE_LOG_DIR=
set KORAL_LOG_DEVELOP=
"%~dp0bin\kit_runner.exe" %*
exit /b %errorlevel%
