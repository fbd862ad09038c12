import org.junit.runner.JUnitCore;
import org.junit.runner.Request;
import org.junit.runner.Result;
import org.junit.runner.notification.Failure;

/** OneCase CLASS METHOD: runs one case, on a virtual machine of its own as what is chosen once is chosen anew there. */
public final class OneCase
{
    private OneCase()
    {
    }

    public static void main(String[] arguments) throws ClassNotFoundException
    {
        Result result = new JUnitCore().run(Request.method(Class.forName(arguments[0]), arguments[1]));
        for (Failure failure : result.getFailures())
            System.out.println(failure.getTrace());
        System.out.println(result.getRunCount() + " run, " + result.getFailureCount() + " failed");
        System.exit(result.wasSuccessful() && result.getRunCount() == 1 ? 0 : 1);
    }
}
