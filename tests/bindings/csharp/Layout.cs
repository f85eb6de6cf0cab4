// Prints the size of the record and the offset of each of its fields.
using System;
using System.Runtime.InteropServices;
using SonviaPCAudio;

public static class Layout
{
    public static void Main()
    {
        Console.WriteLine("size " + Marshal.SizeOf(typeof(AudioServiceParam)));
        foreach (var field in typeof(AudioServiceParam).GetFields())
        {
            if (!field.IsLiteral)
            {
                Console.WriteLine(field.Name + " " + Marshal.OffsetOf(typeof(AudioServiceParam), field.Name));
            }
        }
    }
}
