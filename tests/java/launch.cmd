@rem wine-run.sh keeps variables of the log's from what it starts, so they are set behind it.
@set PRISMATE_LOG_DIR=%TEST_LOG_DIR%
@set KORAL_LOG_DEVELOP=1
@%*
