! The C interface (vexa_c.h) for Fortran hosts, through ISO_C_BINDING. Compile
! this file with the host's own compiler and `use vexa`; link with -lvexa.
!
! Texts go in NUL-terminated: vexa_parse("2*X" // c_null_char, "X" // c_null_char, err).
! Pointers C may take as NULL (options, strides, reports, value buffers) are
! type(c_ptr) by value here: pass c_loc(x) of a target, or c_null_ptr.
! Texts the library allocates come back as type(c_ptr); vexa_string copies
! one into a Fortran string, and vexa_free_text releases it.
! Every call, status and rule is the one vexa_c.h describes.
module vexa
  use, intrinsic :: iso_c_binding
  implicit none

  integer(c_int), parameter :: VEXA_OK = 0
  integer(c_int), parameter :: VEXA_E_CODE = -20001
  integer(c_int), parameter :: VEXA_E_NULL = -20002
  integer(c_int), parameter :: VEXA_E_NOT_SCALAR = -20003
  integer(c_int), parameter :: VEXA_E_REFUSED = -20004
  integer(c_int), parameter :: VEXA_E_NO_GRADIENT = -20005
  integer(c_int), parameter :: VEXA_E_POINTS = -20006
  integer(c_int), parameter :: VEXA_E_LIST = -20007
  integer(c_int), parameter :: VEXA_E_NO_DERIVATIVE = -20008
  integer(c_int), parameter :: VEXA_E_NOT_REGISTERED = -20009
  integer(c_int), parameter :: VEXA_E_BUSY = -20010
  integer(c_int), parameter :: VEXA_E_TOO_SMALL = -20011
  integer(c_int), parameter :: VEXA_E_ARGUMENT = -20012
  integer(c_int), parameter :: VEXA_E_MEMORY = -20013
  integer(c_int), parameter :: VEXA_E_INTERNAL = -20014
  integer(c_int), parameter :: VEXA_E_SHAPE = -20015
  integer(c_int), parameter :: VEXA_BUILTIN = 1
  integer(c_int), parameter :: VEXA_REGISTERED = 2

  type, bind(c) :: vexa_error
    integer(c_int) :: code
    integer(c_int) :: position
    character(kind=c_char) :: message(256)
  end type

  type, bind(c) :: vexa_options
    integer(c_int) :: strict = 0
    integer(c_int) :: threads = 1
  end type

  type, bind(c) :: vexa_value
    integer(c_int) :: rows
    integer(c_int) :: cols
    type(c_ptr) :: data
  end type

  type, bind(c) :: vexa_report
    integer(c_size_t) :: failed
    integer(c_size_t) :: thrown
  end type

  interface
    type(c_ptr) function vexa_parse(text, params, err) bind(c, name="vexa_parse")
      import :: c_ptr, c_char, vexa_error
      character(kind=c_char), intent(in) :: text(*), params(*)
      type(vexa_error), intent(out) :: err
    end function
    subroutine vexa_free(e) bind(c, name="vexa_free")
      import :: c_ptr
      type(c_ptr), value :: e
    end subroutine
    integer(c_int) function vexa_param_count(e) bind(c, name="vexa_param_count")
      import :: c_ptr, c_int
      type(c_ptr), value :: e
    end function
    ! Owned by e: copy it with vexa_string, never free it.
    type(c_ptr) function vexa_param_name(e, index) bind(c, name="vexa_param_name")
      import :: c_ptr, c_int
      type(c_ptr), value :: e
      integer(c_int), value :: index
    end function
    integer(c_int) function vexa_can_plot(e) bind(c, name="vexa_can_plot")
      import :: c_ptr, c_int
      type(c_ptr), value :: e
    end function

    integer(c_int) function vexa_eval(e, params, result, err) bind(c, name="vexa_eval")
      import :: c_ptr, c_int, c_double, vexa_error
      type(c_ptr), value :: e
      real(c_double), intent(in) :: params(*)
      real(c_double), intent(out) :: result
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_eval_ex(e, params, result, options, err) bind(c, name="vexa_eval_ex")
      import :: c_ptr, c_int, c_double, vexa_error
      type(c_ptr), value :: e
      real(c_double), intent(in) :: params(*)
      real(c_double), intent(out) :: result
      type(c_ptr), value :: options
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_eval_value(e, params, result, capacity, err) bind(c, name="vexa_eval_value")
      import :: c_ptr, c_int, c_size_t, vexa_value, vexa_error
      type(c_ptr), value :: e
      type(vexa_value), intent(in) :: params(*)
      type(vexa_value), intent(inout) :: result
      integer(c_size_t), value :: capacity
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_eval_many(e, n, columns, results, err) bind(c, name="vexa_eval_many")
      import :: c_ptr, c_int, c_size_t, c_double, vexa_error
      type(c_ptr), value :: e
      integer(c_size_t), value :: n
      type(c_ptr), intent(in) :: columns(*)
      real(c_double), intent(out) :: results(*)
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_eval_many_ex(e, n, columns, strides, results, options, report, err) &
        bind(c, name="vexa_eval_many_ex")
      import :: c_ptr, c_int, c_size_t, c_double, vexa_error
      type(c_ptr), value :: e
      integer(c_size_t), value :: n
      type(c_ptr), intent(in) :: columns(*)
      type(c_ptr), value :: strides
      real(c_double), intent(out) :: results(*)
      type(c_ptr), value :: options, report
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_gradient(e, params, grad, err) bind(c, name="vexa_gradient")
      import :: c_ptr, c_int, c_double, vexa_error
      type(c_ptr), value :: e
      real(c_double), intent(in) :: params(*)
      real(c_double), intent(out) :: grad(*)
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_gradient_many(e, n, columns, strides, values, grads, options, report, err) &
        bind(c, name="vexa_gradient_many")
      import :: c_ptr, c_int, c_size_t, c_double, vexa_error
      type(c_ptr), value :: e
      integer(c_size_t), value :: n
      type(c_ptr), intent(in) :: columns(*)
      type(c_ptr), value :: strides, values
      real(c_double), intent(out) :: grads(*)
      type(c_ptr), value :: options, report
      type(vexa_error), intent(out) :: err
    end function
    type(c_ptr) function vexa_derivative(e, index, err) bind(c, name="vexa_derivative")
      import :: c_ptr, c_int, vexa_error
      type(c_ptr), value :: e
      integer(c_int), value :: index
      type(vexa_error), intent(out) :: err
    end function
    type(c_ptr) function vexa_exact_derivative(e, index, err) bind(c, name="vexa_exact_derivative")
      import :: c_ptr, c_int, vexa_error
      type(c_ptr), value :: e
      integer(c_int), value :: index
      type(vexa_error), intent(out) :: err
    end function
    ! H(i + n*(j-1)) in Fortran's order is the same symmetric matrix.
    integer(c_int) function vexa_hessian(e, params, h, err) bind(c, name="vexa_hessian")
      import :: c_ptr, c_int, c_double, vexa_error
      type(c_ptr), value :: e
      real(c_double), intent(in) :: params(*)
      real(c_double), intent(out) :: h(*)
      type(vexa_error), intent(out) :: err
    end function

    type(c_ptr) function vexa_dump(e, err) bind(c, name="vexa_dump")
      import :: c_ptr, vexa_error
      type(c_ptr), value :: e
      type(vexa_error), intent(out) :: err
    end function
    type(c_ptr) function vexa_tree_text(e, err) bind(c, name="vexa_tree_text")
      import :: c_ptr, vexa_error
      type(c_ptr), value :: e
      type(vexa_error), intent(out) :: err
    end function
    type(c_ptr) function vexa_registered_calls(e, err) bind(c, name="vexa_registered_calls")
      import :: c_ptr, vexa_error
      type(c_ptr), value :: e
      type(vexa_error), intent(out) :: err
    end function
    type(c_ptr) function vexa_review(text, params, err) bind(c, name="vexa_review")
      import :: c_ptr, c_char, vexa_error
      character(kind=c_char), intent(in) :: text(*), params(*)
      type(vexa_error), intent(out) :: err
    end function
    type(c_ptr) function vexa_functions(which, err) bind(c, name="vexa_functions")
      import :: c_ptr, c_int, vexa_error
      integer(c_int), value :: which
      type(vexa_error), intent(out) :: err
    end function
    subroutine vexa_free_text(text) bind(c, name="vexa_free_text")
      import :: c_ptr
      type(c_ptr), value :: text
    end subroutine

    integer(c_int) function vexa_register(name, e, err) bind(c, name="vexa_register")
      import :: c_ptr, c_int, c_char, vexa_error
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), value :: e
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_unregister(name, err) bind(c, name="vexa_unregister")
      import :: c_int, c_char, vexa_error
      character(kind=c_char), intent(in) :: name(*)
      type(vexa_error), intent(out) :: err
    end function

    type(c_ptr) function vexa_version() bind(c, name="vexa_version")
      import :: c_ptr
    end function
    type(c_ptr) function vexa_machine_code() bind(c, name="vexa_machine_code")
      import :: c_ptr
    end function
  end interface

  interface
    ! The C library's strlen, to size the copies below.
    integer(c_size_t) function vexa_c_strlen(s) bind(c, name="strlen")
      import :: c_ptr, c_size_t
      type(c_ptr), value :: s
    end function
  end interface

contains

  ! A copy of a NUL-terminated text of the library; '' for c_null_ptr.
  function vexa_string(text) result(out)
    type(c_ptr), intent(in) :: text
    character(len=:), allocatable :: out
    character(kind=c_char), pointer :: chars(:)
    integer :: i, n
    if (.not. c_associated(text)) then
      out = ''
      return
    end if
    n = int(vexa_c_strlen(text))
    call c_f_pointer(text, chars, [n])
    allocate(character(len=n) :: out)
    do i = 1, n
      out(i:i) = chars(i)
    end do
  end function

  ! The message of an error as a Fortran string, without trailing blanks.
  function vexa_message(err) result(text)
    type(vexa_error), intent(in) :: err
    character(len=:), allocatable :: text
    integer :: i, n
    n = 0
    do i = 1, size(err%message)
      if (err%message(i) == c_null_char) exit
      n = i
    end do
    allocate(character(len=n) :: text)
    do i = 1, n
      text(i:i) = err%message(i)
    end do
  end function
end module
