// A program of which only the version information in its file counts.

int main()
{
    return 0;
}
