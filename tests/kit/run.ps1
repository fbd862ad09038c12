# Runs all tests of the kit and its benchmarks; results.txt then says what this machine is and what went wrong.
# run.ps1 --skip-benchmarks, or --only TEXT for the cases in whose names it stands.
Remove-Item Env:PRISMATE_LOG_DIR, Env:KORAL_LOG_DEVELOP -ErrorAction SilentlyContinue
& "$PSScriptRoot\bin\kit_runner.exe" @args
exit $LASTEXITCODE
