// Shows what the service reports until a phone plays its first audio, then quits.
using System;
using System.Threading;
using SonviaPCAudio;

public static class Host
{
    public static void Main()
    {
        using (ManualResetEvent firstAudio = new ManualResetEvent(false))
        using (Session session = new Session("C:\\ProgramData\\CSharpHost"))
        {
            session.Event += (code, value) =>
            {
                Console.WriteLine($"{(EventKind)code} {value}");
                if (code == (int)EventKind.FirstAudio)
                {
                    firstAudio.Set();
                }
            };
            session.Error += (code, value) => Console.Error.WriteLine($"{(ErrorKind)code} {value}");
            session.Connect(new Identity { AccountID = "someone@example.com", PcName = "Büro" });
            firstAudio.WaitOne(TimeSpan.FromMinutes(1));
            Console.WriteLine($"phone {session.Phone}, state {session.State}");
            session.Close();
            Console.WriteLine("closed");
        }
    }
}
