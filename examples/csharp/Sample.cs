// Sample.cs - a program in C# that writes to the log: LUMlog.dll by P/Invoke.

using System;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;
using System.Text;

/// <summary>Where a message comes from: lum_site.</summary>
[StructLayout(LayoutKind.Sequential)]
struct Site
{
    public uint size;
    public int line;
    public IntPtr file;
    public IntPtr function;
}

/// <summary>lum_message, as far as it is looked at here: it may be longer.</summary>
[StructLayout(LayoutKind.Sequential)]
struct Message
{
    public uint size;
    public int level;
    public int package;
    public int line;
    public IntPtr file;
    public IntPtr function;
    public IntPtr headline;
    public IntPtr text;
    public UIntPtr length;
}

[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
delegate int Receive(IntPtr user, ref Message message);

static class Native
{
    const string Dll = "LUMlog.dll";

    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl)]
    internal static extern uint lum_version();
    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl)]
    internal static extern int lum_open(byte[] fileName, byte[] appName);
    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl)]
    internal static extern int lum_wants(int level, int package);
    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl, CharSet = CharSet.Unicode)]
    internal static extern void lum_write_wide(ref Site site, int level, int package, string text, UIntPtr length);
    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl)]
    internal static extern IntPtr lum_add_destination(Receive receive, IntPtr user);
    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl)]
    internal static extern void lum_remove_destination(IntPtr destination);
    [DllImport(Dll, CallingConvention = CallingConvention.Cdecl)]
    internal static extern void lum_destination_failed(byte[] why);
}

/// <summary>The log of the process.</summary>
static class Log
{
    public const int Severe = 1, Critical = 2, Error = 3, Warning = 4, Notice = 5, Info = 6, Debug = 7;

    public static byte[] Utf8(string text)
    {
        return text == null ? null : Encoding.UTF8.GetBytes(text + "\0");
    }

    public static bool Open(string fileName, string appName)
    {
        return Native.lum_open(Utf8(fileName), Utf8(appName)) == 0;
    }

    /// <summary>Writes a line. The text is only made when somebody wants it.</summary>
    public static void Write(int level, int package, Func<string> text, [CallerFilePath] string file = "",
        [CallerMemberName] string function = "", [CallerLineNumber] int line = 0)
    {
        if (Native.lum_wants(level, package) == 0)
            return;
        GCHandle fileText = GCHandle.Alloc(Utf8(file), GCHandleType.Pinned);
        GCHandle functionText = GCHandle.Alloc(Utf8(function), GCHandleType.Pinned);
        try
        {
            Site site = new Site
            {
                size = (uint)Marshal.SizeOf(typeof(Site)),
                line = line,
                file = fileText.AddrOfPinnedObject(),
                function = functionText.AddrOfPinnedObject()
            };
            string whole = text();
            Native.lum_write_wide(ref site, level, package, whole, (UIntPtr)whole.Length);
        }
        finally
        {
            fileText.Free();
            functionText.Free();
        }
    }
}

/// <summary>Calls a function with level and text of each message that is written, until it is disposed.</summary>
sealed class Destination : IDisposable
{
    readonly Action<int, string> action;
    readonly Receive receive; // kept: the library has the address only
    IntPtr handle;

    public Destination(Action<int, string> action)
    {
        this.action = action;
        receive = OnMessage;
        handle = Native.lum_add_destination(receive, IntPtr.Zero);
    }

    int OnMessage(IntPtr user, ref Message message)
    {
        try
        {
            byte[] text = new byte[(int)message.length];
            Marshal.Copy(message.text, text, 0, text.Length);
            action(message.level, Encoding.UTF8.GetString(text).TrimEnd('\n'));
        }
        catch (Exception error) // nothing may be thrown out of here
        {
            Native.lum_destination_failed(Log.Utf8(error.Message));
        }
        return 0;
    }

    public void Dispose()
    {
        Native.lum_remove_destination(handle);
        handle = IntPtr.Zero;
    }
}

static class Program
{
    const int PackageLoader = 310;

    static int Main()
    {
        if (!Log.Open("csharp.log", "csharp"))
            return 1;
        using (new Destination((level, text) => Console.WriteLine("level " + level + ": " + text)))
        {
            Log.Write(Log.Warning, PackageLoader, () => "only 12 of 17 images fit into memory");
            Log.Write(Log.Debug, PackageLoader, () => "not made unless somebody wants it");
        }
        return 0;
    }
}
