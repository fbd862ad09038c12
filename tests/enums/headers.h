/* headers.h - the toolchain's Windows headers whose enumerations the legend is to learn. */

#include <windows.h>

#include <bits.h>
#include <combaseapi.h>
#include <dbghelp.h>
#include <ddraw.h>
#include <docobj.h>
#include <iphlpapi.h>
#include <iptypes.h>
#include <netioapi.h>
#include <ntsecapi.h>
#include <oaidl.h>
#include <objidl.h>
#include <powrprof.h>
#include <propsys.h>
#include <sddl.h>
#include <setupapi.h>
#include <shlobj.h>
#include <shobjidl.h>
#include <taskschd.h>
#include <urlmon.h>
#include <wbemcli.h>
#include <wincodec.h>
#include <wincred.h>
#include <winevt.h>
#include <winioctl.h>
#include <wtsapi32.h>
#include <xmllite.h>
