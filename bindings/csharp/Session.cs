using System;
using System.IO;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

namespace SonviaPCAudio
{
    /// <summary>What failed is in Failure.</summary>
    public sealed class SonviaException : Exception
    {
        public SonviaException(Failure failure, Exception inner = null) : base(Texts.Of(failure), inner)
        {
            Failure = failure;
        }

        public Failure Failure { get; }
    }

    /// <summary>All texts have at most 255 bytes of UTF-8 and no NUL.</summary>
    public sealed class Identity
    {
        public string AccountID = "";
        public string DeviceID = "";
        public string SerialNumber = "";
        public string Model = "";
        public string BluetoothMac = "";
        public string PcName = "";
    }

    /// <summary>
    /// One session at a time in a process. The handlers run on the library's thread: a window's thread gets events by
    /// BeginInvoke, never by Invoke, or Close would wait for ever. The DLL and QuPCAudio.exe belong next to the host's
    /// executable: for `dotnet app.dll` that is dotnet.exe, so ship the apphost.
    /// </summary>
    public sealed unsafe class Session : IDisposable
    {
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        private delegate void Callback(int code, int value);

        private const int PauseBetweenConnects = 100;
        private const int LongestFolder = 200;

        private static int open;
        [ThreadStatic] private static bool insideHandler;

        private readonly object mutex = new object();
        private readonly ManualResetEvent closing = new ManualResetEvent(false);
        private readonly TimeSpan connectTime;
        // The library holds pointers to these: the garbage collector must not take them before the release.
        private readonly Callback onEvent;
        private readonly Callback onError;
        private AudioServiceParam record;
        private IntPtr handle;
        private DateTime retriesEnd;
        private int calls;
        private bool closed;

        /// <summary>Starts the service. Blocks while running services are ended, plus 200 ms.</summary>
        public Session(string logFolder, LogLevel logLevel = LogLevel.Info, TimeSpan? connectTime = null)
        {
            if (insideHandler)
            {
                throw new SonviaException(Failure.InsideCallback);
            }
            this.connectTime = connectTime ?? TimeSpan.FromSeconds(5);
            byte[] folder = FolderForService(logFolder);
            if (Interlocked.CompareExchange(ref open, 1, 0) != 0)
            {
                throw new SonviaException(Failure.SessionOpen);
            }
            onEvent = (code, value) => Deliver(Event, code, value);
            onError = HandleError;
            record.onEvent = Marshal.GetFunctionPointerForDelegate(onEvent);
            record.onError = Marshal.GetFunctionPointerForDelegate(onError);
            record.context = new IntPtr(1);
            try
            {
                fixed (byte* text = folder)
                {
                    handle = Native.initSonviaAudioService(text, (int)logLevel);
                }
                if (handle == IntPtr.Zero)
                {
                    throw new SonviaException(Failure.ServiceNotStarted);
                }
            }
            catch (Exception error)
            {
                Interlocked.Exchange(ref open, 0);
                if (error is DllNotFoundException || error is BadImageFormatException)
                {
                    throw new SonviaException(Failure.LibraryNotLoaded, error);
                }
                if (error is EntryPointNotFoundException)
                {
                    throw new SonviaException(Failure.NotTheLibrary, error);
                }
                throw;
            }
        }

        /// <summary>An EventKind and its value. Set the handlers before Connect.</summary>
        public event Action<int, int> Event;

        /// <summary>An ErrorKind and libuv's error code; 0 if no connection was made.</summary>
        public event Action<int, int> Error;

        /// <summary>What a handler has thrown: no exception crosses the library.</summary>
        public event Action<Exception> HandlerThrew;

        /// <summary>Connects and sends the identity; again to change it.</summary>
        public void Connect(Identity identity)
        {
            byte[][] texts =
            {
                BytesOf(identity.AccountID), BytesOf(identity.DeviceID), BytesOf(identity.SerialNumber),
                BytesOf(identity.Model), BytesOf(identity.BluetoothMac), BytesOf(identity.PcName),
            };
            lock (mutex)
            {
                fixed (AudioServiceParam* to = &record)
                {
                    Put(texts[0], to->accountID);
                    Put(texts[1], to->deviceID);
                    Put(texts[2], to->sn);
                    Put(texts[3], to->model);
                    Put(texts[4], to->bluetoothMac);
                    Put(texts[5], to->pcName);
                }
                retriesEnd = DateTime.UtcNow + connectTime;
            }
            SendRecord();
        }

        /// <summary>Empty if nobody is signed in.</summary>
        public void SetAccount(string accountID)
        {
            byte[] text = BytesOf(accountID);
            bool shorter;
            lock (mutex)
            {
                fixed (AudioServiceParam* to = &record)
                {
                    int before = 0;
                    while (to->accountID[before] != 0)
                    {
                        ++before;
                    }
                    shorter = accountID.Length == 0 || Encoding.UTF8.GetByteCount(accountID) < before;
                    Put(text, to->accountID);
                }
            }
            if (shorter)
            {
                SendRecord(); // the library's setAccountID keeps the tail of a longer id
                return;
            }
            Call(() =>
            {
                fixed (byte* bytes = text)
                {
                    return Native.setAccountID(handle, bytes) != 0;
                }
            });
        }

        /// <summary>Asks the service to end the projection.</summary>
        public void ExitProjection()
        {
            Call(() => Native.exitAudioProjection(handle) != 0);
        }

        /// <summary>The player state as the service sent it.</summary>
        public uint State
        {
            get
            {
                uint state = Native.StateUnknown;
                Enter(() => state = Native.getState(handle));
                return state;
            }
        }

        /// <summary>The name of the phone. The library owns its text, so it is copied at once.</summary>
        public string Phone
        {
            get
            {
                string name = "phone";
                Enter(() =>
                {
                    byte* text = Native.getSourceName(handle);
                    int length = 0;
                    while (text[length] != 0)
                    {
                        ++length;
                    }
                    byte[] bytes = new byte[length];
                    Marshal.Copy((IntPtr)text, bytes, 0, length);
                    name = Encoding.UTF8.GetString(bytes);
                });
                return name;
            }
        }

        /// <summary>Stops the service; does nothing the second time. Not inside a handler.</summary>
        public void Close()
        {
            if (insideHandler)
            {
                throw new SonviaException(Failure.InsideCallback);
            }
            lock (mutex)
            {
                if (closing.WaitOne(0))
                {
                    while (!closed)
                    {
                        Monitor.Wait(mutex);
                    }
                    return;
                }
                closing.Set();
                while (calls != 0)
                {
                    Monitor.Wait(mutex);
                }
            }
            Native.uninitSonviaAudioService(handle);
            GC.KeepAlive(onEvent);
            GC.KeepAlive(onError);
            Interlocked.Exchange(ref open, 0);
            lock (mutex)
            {
                closed = true;
                Monitor.PulseAll(mutex);
            }
        }

        public void Dispose()
        {
            Close();
        }

        // A call that may not overlap the release.
        private bool Enter(Action function)
        {
            lock (mutex)
            {
                if (closing.WaitOne(0))
                {
                    return false;
                }
                ++calls;
            }
            try
            {
                function();
            }
            finally
            {
                lock (mutex)
                {
                    --calls;
                    Monitor.PulseAll(mutex);
                }
            }
            return true;
        }

        private void Call(Func<bool> function)
        {
            bool taken = false;
            if (!Enter(() => taken = function()))
            {
                throw new SonviaException(Failure.NotOpen);
            }
            if (!taken)
            {
                throw new SonviaException(Failure.Refused);
            }
        }

        private void SendRecord()
        {
            Call(() =>
            {
                AudioServiceParam copy;
                lock (mutex)
                {
                    copy = record;
                }
                return Native.setParam(handle, &copy) != 0;
            });
        }

        private void Deliver(Action<int, int> handler, int code, int value)
        {
            insideHandler = true;
            try
            {
                handler?.Invoke(code, value);
            }
            catch (Exception thrown)
            {
                try
                {
                    HandlerThrew?.Invoke(thrown);
                }
                catch (Exception)
                {
                    // There is nobody left to report it to.
                }
            }
            finally
            {
                insideHandler = false;
            }
        }

        private void HandleError(int code, int value)
        {
            bool noError = code == (int)ErrorKind.Stream && value == 0; // a frame came in several pieces
            bool neverConnected = code == (int)ErrorKind.Connection && value == 0;
            if (!noError && !(neverConnected && ConnectAgain()))
            {
                Deliver(Error, code, value);
            }
        }

        // On the library's thread. No event can come while there is no connection, so the pause delays none.
        private bool ConnectAgain()
        {
            DateTime end;
            lock (mutex)
            {
                end = retriesEnd;
            }
            if (!closing.WaitOne(0) && DateTime.UtcNow >= end)
            {
                return false;
            }
            if (closing.WaitOne(PauseBetweenConnects))
            {
                return true;
            }
            try
            {
                SendRecord();
                return true;
            }
            catch (SonviaException error)
            {
                return error.Failure == Failure.NotOpen;
            }
        }

        private static byte[] BytesOf(string text)
        {
            if (text.IndexOf('\0') >= 0)
            {
                throw new SonviaException(Failure.TextHoldsNul);
            }
            byte[] field = new byte[AudioServiceParam.TextSize];
            byte[] bytes;
            try
            {
                bytes = new UTF8Encoding(false, true).GetBytes(text);
            }
            catch (EncoderFallbackException error)
            {
                throw new SonviaException(Failure.TextNotUtf8, error);
            }
            if (bytes.Length >= field.Length)
            {
                throw new SonviaException(Failure.TextTooLong);
            }
            bytes.CopyTo(field, 0);
            return field;
        }

        private static void Put(byte[] text, byte* field)
        {
            Marshal.Copy(text, 0, (IntPtr)field, AudioServiceParam.TextSize);
        }

        [DllImport("kernel32.dll", CharSet = CharSet.Unicode, ExactSpelling = true)]
        private static extern uint GetShortPathNameW(string path, StringBuilder buffer, uint size);

        private static bool IsPlain(string text)
        {
            foreach (char letter in text)
            {
                if (letter <= ' ' || letter > '~')
                {
                    return false;
                }
            }
            return true;
        }

        // As the service understands it: absolute, created, ASCII without spaces.
        private static byte[] FolderForService(string folder)
        {
            string given;
            try
            {
                given = Path.GetFullPath(folder);
                Directory.CreateDirectory(given);
            }
            catch (Exception error) when (!(error is OutOfMemoryException))
            {
                throw new SonviaException(Failure.FolderNotMade, error);
            }
            if (!IsPlain(given))
            {
                StringBuilder buffer = new StringBuilder(32768);
                uint length = GetShortPathNameW(given, buffer, (uint)buffer.Capacity);
                given = buffer.ToString();
                if (length == 0 || !IsPlain(given))
                {
                    throw new SonviaException(Failure.FolderWithoutShortName);
                }
            }
            if (given.Length > LongestFolder)
            {
                throw new SonviaException(Failure.FolderTooLong);
            }
            return Encoding.ASCII.GetBytes(given + "\0");
        }
    }
}
