! A Fortran host through ISO_C_BINDING: parses a force law, evaluates it over
! a grid of displacements, and takes its exact gradient at one point. Stops
! with a non-zero code when anything is not as expected.
module vexa
  use, intrinsic :: iso_c_binding
  implicit none

  type, bind(c) :: vexa_error
    integer(c_int) :: code
    integer(c_int) :: position
    character(kind=c_char) :: message(256)
  end type

  interface
    type(c_ptr) function vexa_parse(text, params, err) bind(c, name="vexa_parse")
      import :: c_ptr, c_char, vexa_error
      character(kind=c_char), intent(in) :: text(*), params(*)
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_param_count(e) bind(c, name="vexa_param_count")
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
    integer(c_int) function vexa_eval_many(e, n, columns, results, err) bind(c, name="vexa_eval_many")
      import :: c_ptr, c_int, c_size_t, c_double, vexa_error
      type(c_ptr), value :: e
      integer(c_size_t), value :: n
      type(c_ptr), intent(in) :: columns(*)
      real(c_double), intent(out) :: results(*)
      type(vexa_error), intent(out) :: err
    end function
    integer(c_int) function vexa_gradient(e, params, grad, err) bind(c, name="vexa_gradient")
      import :: c_ptr, c_int, c_double, vexa_error
      type(c_ptr), value :: e
      real(c_double), intent(in) :: params(*)
      real(c_double), intent(out) :: grad(*)
      type(vexa_error), intent(out) :: err
    end function
    subroutine vexa_free(e) bind(c, name="vexa_free")
      import :: c_ptr
      type(c_ptr), value :: e
    end subroutine
  end interface

contains

  ! The message of an error as a Fortran string.
  function message_of(err) result(text)
    type(vexa_error), intent(in) :: err
    character(len=256) :: text
    integer :: i
    text = ' '
    do i = 1, 256
      if (err%message(i) == c_null_char) exit
      text(i:i) = err%message(i)
    end do
  end function
end module

program fortran_host
  use vexa
  implicit none
  integer, parameter :: n = 5
  type(vexa_error) :: err
  type(c_ptr) :: force
  real(c_double), target :: disp(n), vel(n), stiff(n), damp(n)
  real(c_double) :: forces(n), point(4), value, partials(4)
  type(c_ptr) :: columns(4)
  integer :: i

  force = vexa_parse("-STIFF*DISP-DAMP*VEL" // c_null_char, "DISP,VEL,STIFF,DAMP" // c_null_char, err)
  if (.not. c_associated(force)) then
    print '(a)', trim(message_of(err))
    stop 1
  end if
  if (vexa_param_count(force) /= 4) stop 2

  ! One column of values per parameter, in the final parameter order.
  do i = 1, n
    disp(i) = 0.001d0 * (i - 3)
  end do
  vel = 0.1d0
  stiff = 1.0d3
  damp = 10.0d0
  columns = [c_loc(disp), c_loc(vel), c_loc(stiff), c_loc(damp)]
  if (vexa_eval_many(force, int(n, c_size_t), columns, forces, err) /= 0) then
    print '(a)', trim(message_of(err))
    stop 3
  end if
  print '(a, 5f9.3)', 'forces:', forces

  point = [disp(5), vel(5), stiff(5), damp(5)]
  if (vexa_eval(force, point, value, err) /= 0) stop 4
  if (value /= forces(5)) stop 5

  ! d/dDISP = -STIFF, d/dVEL = -DAMP, d/dSTIFF = -DISP, d/dDAMP = -VEL.
  if (vexa_gradient(force, point, partials, err) /= 0) stop 6
  print '(a, 4f10.4)', 'gradient:', partials
  if (abs(partials(1) + 1.0d3) > 1.0d-12 .or. abs(partials(4) + 0.1d0) > 1.0d-12) stop 7

  call vexa_free(force)
  print '(a)', 'Fortran host: all as expected'
end program
