// 20 sessions that are closed while 200 events arrive in a second; prints how many milliseconds each close took. With
// --wait-in-handler each handler waits until the session is closed, as one does that hands its event to a window's
// thread by Invoke while that thread closes the session.
using System;
using System.Diagnostics;
using System.Threading;
using SonviaPCAudio;

public static class Quits
{
    public static void Main(string[] args)
    {
        bool waitInHandler = args.Length > 1 && args[1] == "--wait-in-handler";
        for (int round = 0; round < 20; ++round)
        {
            using (CountdownEvent flooded = new CountdownEvent(10))
            using (ManualResetEvent waiting = new ManualResetEvent(!waitInHandler))
            using (ManualResetEvent closed = new ManualResetEvent(false))
            using (Session session = new Session(args[0], LogLevel.Warning, TimeSpan.FromMinutes(1)))
            {
                session.Event += (code, value) =>
                {
                    if (!flooded.IsSet)
                    {
                        flooded.Signal();
                    }
                    else if (waitInHandler)
                    {
                        waiting.Set();
                        closed.WaitOne();
                    }
                };
                session.Connect(new Identity { PcName = "Büro" });
                flooded.Wait();
                waiting.WaitOne();
                Console.WriteLine("closing");
                Stopwatch watch = Stopwatch.StartNew();
                session.Close();
                closed.Set();
                Console.WriteLine("closed " + watch.ElapsedMilliseconds);
            }
        }
    }
}
