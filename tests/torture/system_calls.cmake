# The library with these calls going to system_calls.cpp, which can make any of them fail. Only the library's own are
# renamed: the test, the digest archive and the C library keep theirs.
set(renamed malloc calloc realloc free socket eventfd timerfd_create timerfd_settime epoll_create1 epoll_ctl epoll_wait close shutdown bind connect
            setsockopt getaddrinfo swapcontext send sendto recv recvfrom recvmmsg read write poll clock_gettime nanosleep gethostname pthread_create
            pthread_join pthread_detach pthread_mutex_trylock pthread_mutex_init pthread_mutex_destroy pthread_mutex_lock pthread_mutex_unlock
            pthread_cond_init pthread_cond_destroy pthread_cond_signal pthread_cond_broadcast pthread_cond_timedwait
            pthread_cond_clockwait
            perror)
list(TRANSFORM renamed REPLACE "(.+)" "--redefine-sym=\\1=torture_\\1")
# g++ deletes with the size, clang++ without.
list(APPEND renamed --redefine-sym=_ZnwmRKSt9nothrow_t=torture_new --redefine-sym=_ZdlPv=torture_delete
     --redefine-sym=_ZdlPvm=torture_delete_sized)
set(archive ${CMAKE_CURRENT_BINARY_DIR}/librtsptap-tortured.a)
add_custom_command(OUTPUT ${archive} DEPENDS rtsptap_static
                   COMMAND ${CMAKE_OBJCOPY} ${renamed} $<TARGET_FILE:rtsptap_static> ${archive})
