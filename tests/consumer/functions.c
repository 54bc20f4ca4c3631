#include <SingleInstanceController.h>

int main(void)
{
    return (int)getSingleInstanceState();
}
