# cpp-httplib.sh SOURCE BUILD PREFIX
# One header with all of it in it; the distribution's own package has its other half in a library for this machine.
mkdir -p "$3/include"
# The socket library is started by who serves something, not by each program that could.
sed '/^static WSInit wsinit_;$/d' "$1/httplib.h" >"$3/include/httplib.h"
if cmp -s "$1/httplib.h" "$3/include/httplib.h"; then
    echo "The line that starts the socket library was not found."
    exit 1
fi
