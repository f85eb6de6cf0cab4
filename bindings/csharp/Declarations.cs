// Written by bindings/declarations.py from src/api/abi.json and bindings/texts.json: change those.
using System.Runtime.InteropServices;

namespace SonviaPCAudio
{
    public enum LogLevel
    {
        /// <summary>every call and every packet</summary>
        Debug = 0,
        /// <summary>the steps of a session</summary>
        Info = 1,
        /// <summary>what a host may have done wrong</summary>
        Warning = 3,
        /// <summary>what failed</summary>
        Error = 4,
    }

    public enum EventKind
    {
        /// <summary>buffering started</summary>
        BufferingStarted = 200001,
        /// <summary>buffering ended</summary>
        BufferingEnded = 200002,
        /// <summary>first audio</summary>
        FirstAudio = 200003,
        /// <summary>mode changed</summary>
        ModeChanged = 200006,
    }

    public enum ErrorKind
    {
        /// <summary>no connection to the service, or the connection was lost</summary>
        Connection = -2,
        /// <summary>the stream from the service failed</summary>
        Stream = -3,
    }

    public enum Failure
    {
        /// <summary>SonviaPCAudioDll.dll could not be loaded</summary>
        LibraryNotLoaded = 1,
        /// <summary>SonviaPCAudioDll.dll lacks a function: it is another library or another version</summary>
        NotTheLibrary = 2,
        /// <summary>QuPCAudio.exe did not start: it belongs next to the host's executable</summary>
        ServiceNotStarted = 3,
        /// <summary>a session is open already in this process</summary>
        SessionOpen = 4,
        /// <summary>the session is not open</summary>
        NotOpen = 5,
        /// <summary>a session is neither opened nor closed inside a callback</summary>
        InsideCallback = 6,
        /// <summary>a text has more than 255 bytes of UTF-8</summary>
        TextTooLong = 7,
        /// <summary>a text is not valid UTF-8</summary>
        TextNotUtf8 = 8,
        /// <summary>a text holds a NUL</summary>
        TextHoldsNul = 9,
        /// <summary>the log folder could not be created</summary>
        FolderNotMade = 10,
        /// <summary>the path of the log folder has more than 200 characters</summary>
        FolderTooLong = 11,
        /// <summary>the service needs a log folder of ASCII without spaces, and this one has no short name</summary>
        FolderWithoutShortName = 12,
        /// <summary>the library refused the call: a connection is still being made, or memory ran out</summary>
        Refused = 13,
    }

    internal static class Texts
    {
        public static string Of(LogLevel value)
        {
            switch (value)
            {
                case LogLevel.Debug: return "every call and every packet";
                case LogLevel.Info: return "the steps of a session";
                case LogLevel.Warning: return "what a host may have done wrong";
                case LogLevel.Error: return "what failed";
                default: return "unknown";
            }
        }

        public static string Of(EventKind value)
        {
            switch (value)
            {
                case EventKind.BufferingStarted: return "buffering started";
                case EventKind.BufferingEnded: return "buffering ended";
                case EventKind.FirstAudio: return "first audio";
                case EventKind.ModeChanged: return "mode changed";
                default: return "unknown";
            }
        }

        public static string Of(ErrorKind value)
        {
            switch (value)
            {
                case ErrorKind.Connection: return "no connection to the service, or the connection was lost";
                case ErrorKind.Stream: return "the stream from the service failed";
                default: return "unknown";
            }
        }

        public static string Of(Failure value)
        {
            switch (value)
            {
                case Failure.LibraryNotLoaded: return "SonviaPCAudioDll.dll could not be loaded";
                case Failure.NotTheLibrary: return "SonviaPCAudioDll.dll lacks a function: it is another library or another version";
                case Failure.ServiceNotStarted: return "QuPCAudio.exe did not start: it belongs next to the host's executable";
                case Failure.SessionOpen: return "a session is open already in this process";
                case Failure.NotOpen: return "the session is not open";
                case Failure.InsideCallback: return "a session is neither opened nor closed inside a callback";
                case Failure.TextTooLong: return "a text has more than 255 bytes of UTF-8";
                case Failure.TextNotUtf8: return "a text is not valid UTF-8";
                case Failure.TextHoldsNul: return "a text holds a NUL";
                case Failure.FolderNotMade: return "the log folder could not be created";
                case Failure.FolderTooLong: return "the path of the log folder has more than 200 characters";
                case Failure.FolderWithoutShortName: return "the service needs a log folder of ASCII without spaces, and this one has no short name";
                case Failure.Refused: return "the library refused the call: a connection is still being made, or memory ran out";
                default: return "unknown";
            }
        }
    }

    /// <summary>The record for setParam, field for field. Callbacks are pointers, texts are bytes.</summary>
    [StructLayout(LayoutKind.Explicit, Size = 1560)]
    internal unsafe struct AudioServiceParam
    {
        public const int TextSize = 256;
        [FieldOffset(0)] public System.IntPtr onEvent;
        [FieldOffset(8)] public System.IntPtr onError;
        [FieldOffset(16)] public System.IntPtr context;
        [FieldOffset(24)] public fixed byte accountID[256];
        [FieldOffset(280)] public fixed byte deviceID[256];
        [FieldOffset(536)] public fixed byte sn[256];
        [FieldOffset(792)] public fixed byte model[256];
        [FieldOffset(1048)] public fixed byte bluetoothMac[256];
        [FieldOffset(1304)] public fixed byte pcName[256];
    }

    /// <summary>The exported functions. A bool has one byte, and a borrowed text is a pointer.</summary>
    internal static unsafe class Native
    {
        public const string Library = "SonviaPCAudioDll";
        public const string Version = "2.1.2110122";
        public const uint StateUnknown = 4;

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern byte exitAudioProjection(System.IntPtr handle);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern byte* getSourceName(System.IntPtr handle);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern uint getState(System.IntPtr handle);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern int getVersion();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern System.IntPtr initSonviaAudioService(byte* logDir, int logLevel);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern byte setAccountID(System.IntPtr handle, byte* accountID);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern byte setParam(System.IntPtr handle, AudioServiceParam* param);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, ExactSpelling = true)]
        public static extern byte uninitSonviaAudioService(System.IntPtr handle);
    }
}
